// tuk_mem.h - the memory library: process memory figures, out-of-memory handling and the
// in-process heap profiler.
// The header is clean under C++17. Unless a function says otherwise it may be called from any
// thread, at any time after the library is loaded, the end of the process included: it finds what
// is tracked whole, or finds that tracking has ended. Failures are not returned as codes: queries
// answer 0, false or an empty text, and diagnostics go to the debug channel (mem_msg_vdebug).
// A broken internal invariant ends in err_report_internal_error, which does not return.
// From a signal handler: functions marked [signal] may be called. Where the handler has interrupted
// its own thread inside the tracker, they do nothing: a dump writes nothing and answers false, a
// query answers false, a flush, snapshot, reset or label is left out. They are safe against the
// library's own locks, not against those of the host's streams and allocator. The other functions
// must not be called from a signal handler.
// From a debug-message callback: it may be called from inside an allocation or a release, so it
// must not wait for another thread. It may call everything here, a reset and a switch of tracking
// included; what it allocates is not tracked, and an exception it throws ends where it was called.
// In a child made by fork nothing is tracked any more and no report is written: the functions
// answer as after the end. A program the child executes is tracked by its own environment.
#ifndef TUK_MEM_H
#define TUK_MEM_H

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>

/// The version of this header. A host built with it runs with any library of the same major version
/// that is as new or newer.
#define TUK_MEM_VERSION_MAJOR 1
#define TUK_MEM_VERSION_MINOR 0
#define TUK_MEM_VERSION_PATCH 0
#define TUK_MEM_VERSION_STRING           \
  TUK_MEM_TEXT_OF(TUK_MEM_VERSION_MAJOR) \
  "." TUK_MEM_TEXT_OF(TUK_MEM_VERSION_MINOR) "." TUK_MEM_TEXT_OF(TUK_MEM_VERSION_PATCH)
#define TUK_MEM_TEXT_OF(number) TUK_MEM_TEXT_OF_TOKEN(number)
#define TUK_MEM_TEXT_OF_TOKEN(token) #token

#define TUK_MEM_API __attribute__((visibility("default")))
#define TUK_MEM_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))

// ---------------------------------------------------------------------------------------------
// Start-up object
// ---------------------------------------------------------------------------------------------

/// Counts the modules of the process that use the library. The first instance constructed runs
/// the start-up sequence (allocator discovery, critical section, thread wrapper, settings, spare
/// memory, tracking), the last one destroyed runs the teardown, which writes the reports.
/// The library holds one instance of its own, named "MEM"; a module that wants to be counted
/// holds a static one with its own name. A name that begins with "MSG" marks the host's message
/// module: once it is gone the tracker writes its debug lines to standard output.
class TUK_MEM_API MEM_INITIALIZER {
 public:
  /// `name` is not copied: pass a string literal. No exception leaves; one thrown by the start-up
  /// sequence (a malformed numeric setting, for instance) ends the process.
  explicit MEM_INITIALIZER(const char* name) noexcept;
  ~MEM_INITIALIZER() noexcept;
  MEM_INITIALIZER(const MEM_INITIALIZER&) = delete;
  MEM_INITIALIZER& operator=(const MEM_INITIALIZER&) = delete;

  /// Number of live instances in the process.
  static std::atomic<std::int64_t> s_init_counter;

 private:
  const char* m_name;
};

/// Reads the start-up settings ("debug_msg"). Start-up calls it; later calls do nothing.
TUK_MEM_API void mem_read_korvane_ini_file();

// ---------------------------------------------------------------------------------------------
// Host callbacks
// ---------------------------------------------------------------------------------------------
// Each setter stores one function pointer without locking: install callbacks during the host's
// own start-up, before threads that use them run. Null empties the slot again.

using MEM_MESSAGE_CALLBACK = bool (*)(const char* module, const char* format, va_list args);

/// Takes every debug message instead of standard output.
TUK_MEM_API void mem_set_msg_local_vdebug_callback(MEM_MESSAGE_CALLBACK callback);
/// Takes every information message instead of standard output.
TUK_MEM_API void mem_set_msg_local_vinfo_callback(MEM_MESSAGE_CALLBACK callback);
/// Answers mem_cfg_is_on.
TUK_MEM_API void mem_set_cfg_is_on_callback(bool (*callback)(const char* name, bool default_value));
/// Answers mem_cfg_get_value by filling the (empty) string.
TUK_MEM_API void mem_set_cfg_get_value_callback(void (*callback)(const char* name,
                                                                 std::string* out));
/// Answers mem_cfg_get_int_value by storing into the integer, which holds 0 before.
TUK_MEM_API void mem_set_cfg_get_int_value_callback(void (*callback)(const char* name, int* out,
                                                                     int default_value));
/// Runs a Tcl command of the host for mem_atcl_run_internal_tcl_cmd.
TUK_MEM_API void mem_set_atcl_run_internal_tcl_cmd_callback(bool (*callback)(const char* command));
/// Answers mem_gen_get_korvane_path.
TUK_MEM_API void mem_set_gen_get_korvane_path_callback(std::string (*callback)());
/// Answers mem_gen_get_db_dir_path_string.
TUK_MEM_API void mem_set_gen_get_db_dir_path_string_callback(std::string (*callback)());
/// Answers mem_gen_get_is_ui_process.
TUK_MEM_API void mem_set_gen_get_is_ui_process_callback(bool (*callback)());
/// Answers mem_gen_get_module_filename (the name the fast leak report prints).
TUK_MEM_API void mem_set_gen_get_module_filename_callback(std::string (*callback)());
/// Answers mem_gen_get_project_output_directory.
TUK_MEM_API void mem_set_gen_get_project_output_directory_callback(const char* (*callback)());

/// Runs `command` through the host; false when no callback is installed.
TUK_MEM_API bool mem_atcl_run_internal_tcl_cmd(const char* command);
/// The host's installation path; empty without a callback.
TUK_MEM_API std::string mem_gen_get_korvane_path();
/// The host's database directory; empty without a callback.
TUK_MEM_API std::string mem_gen_get_db_dir_path_string();
/// Whether this is the host's user-interface process; false without a callback.
TUK_MEM_API bool mem_gen_get_is_ui_process();
/// The file name of the process's main module; empty without a callback.
TUK_MEM_API std::string mem_gen_get_module_filename();
/// The project's output directory; never null, "" without a callback.
TUK_MEM_API const char* mem_gen_get_project_output_directory();

// ---------------------------------------------------------------------------------------------
// Configuration lookups
// ---------------------------------------------------------------------------------------------
// A lookup asks the installed callback; without one it searches the process once for the host's
// own function (cfg_dyn_is_on, cfg_dyn_get_int_value, cfg_dyn_get_value); without that it reads
// the environment variable of the same name. Start-up, in the library's own static initialisation,
// makes the first lookups: it finds such a function, but no callback that main installs.
// In a process that has more rights than whoever started it (setuid and setgid programs, file
// capabilities) every environment variable counts as unset, switches included.

/// A boolean setting. From the environment "on" and "1" are true, "off" and "0" false (any case);
/// unset, empty or anything else gives `default_value`.
TUK_MEM_API bool mem_cfg_is_on(const char* name, bool default_value);
/// An integer setting. From the environment: leading decimal digits as strtol reads them. Without
/// a callback `default_value` is never used, and hosts count on that: unset or empty gives 0.
TUK_MEM_API int mem_cfg_get_int_value(const char* name, int default_value);
/// A text setting; empty when it is not set. An exception of the callback passes on.
TUK_MEM_API std::string mem_cfg_get_value(const char* name);
/// An environment switch: off when unset, empty or exactly "0"; everything else is on,
/// also "off", "no" and "00", as scripts of old set them.
TUK_MEM_API bool mem_env_is_on(const char* name);
/// Always null; kept for the host's interface.
TUK_MEM_API void* mem_get_cfg_handle();

// ---------------------------------------------------------------------------------------------
// Messages
// ---------------------------------------------------------------------------------------------

/// How debug text is wrapped when no callback takes it. Other values act as 0.
enum MEM_IPC_MODE : std::int32_t {
  MEM_IPC_MODE_NONE = 0,  ///< plain text
  MEM_IPC_MODE_TCL = 1,   ///< a Tcl post-message command
  MEM_IPC_MODE_JSON = 2   ///< a JSON message object
};

/// Sets the wrapping; the value is not checked.
TUK_MEM_API void mem_set_ipc_mode(MEM_IPC_MODE mode);

/// Writes an information message: to the callback, else to standard output as "module: text".
/// Returns the callback's answer, else true.
TUK_MEM_API bool mem_msg_local_vinfo(const char* module, const char* format, va_list args);
/// Writes a debug message: to the callback, else to standard output when the setting "debug_msg"
/// is on. The text goes into the Tcl and JSON wrappings unescaped.
/// Returns the callback's answer, else true, also when nothing was printed.
TUK_MEM_API bool mem_msg_local_vdebug(const char* module, const char* format, va_list args);
/// mem_msg_local_vdebug with the module "MEM".
TUK_MEM_API bool mem_msg_vdebug(const char* format, ...) TUK_MEM_PRINTF(1, 2);

/// From now on the tracker prints its debug lines itself instead of sending them to the host.
TUK_MEM_API void mem_tbb_tracking_notify_msg_shutting_down();

/// The same for a scope. Nests; never clears what was set for good.
class TUK_MEM_API MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT {
 public:
  MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT();
  ~MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT();
  MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT(const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT&) = delete;
  MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT& operator=(const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT&) =
      delete;

 private:
  bool m_was_clear;
};

/// Reports a fatal error to the host's err_report_fatal_error; texts beyond 499 characters are
/// cut. A second error raised while the first is reported ends the process with status 255, after a
/// stop in the debugger when the setting "dont_catch_all_exceptions" is on; a third aborts. Holds
/// no lock while reporting.
TUK_MEM_API void mem_internal_error(const char* file, int line, const char* format, ...)
    TUK_MEM_PRINTF(3, 4);

// ---------------------------------------------------------------------------------------------
// Memory manager and statistics
// ---------------------------------------------------------------------------------------------

/// Bytes and blocks of live tracked allocations.
struct MEM_BASE_STATS {
  std::int64_t bytes;
  std::int64_t count;
};

/// The three statistics records in one copy. Kept up to date under per-bin or fast leak tracking.
struct MEM_STATS {
  MEM_BASE_STATS global_current;
  MEM_BASE_STATS global_peak;
  MEM_BASE_STATS local_peak;
};

/// The process's memory manager as the host sees it; stateless.
class TUK_MEM_API MEM_MANAGER {
 public:
  /// Creates the library's critical section, once per process. Start-up calls it.
  void initialize();
  /// Address of the one dummy segment; never null.
  void* get_default_segment();
  /// Does nothing; kept for the host's interface.
  void check_memory_guards();
  /// Usable bytes of a block of the C allocator, as malloc_usable_size reports them.
  std::size_t msize(void* block);
  /// Bytes currently held by live tracked allocations.
  std::uint64_t current_total_memory() noexcept;
  /// Highest value current_total_memory has reached.
  std::uint64_t peak_total_memory() noexcept;
};

/// The one manager.
extern TUK_MEM_API MEM_MANAGER mem_manager;

/// Always true, for any pointer.
TUK_MEM_API bool mem_is_allocated(void* block);
/// Each word is read atomically; a record may mix values of two moments.
TUK_MEM_API MEM_BASE_STATS mem_get_global_current() noexcept;
/// The largest values the global current record has reached, each field on its own.
TUK_MEM_API MEM_BASE_STATS mem_get_global_peak() noexcept;
/// The largest values since the innermost local region was entered.
TUK_MEM_API MEM_BASE_STATS mem_get_local_peak() noexcept;
/// All three records.
TUK_MEM_API MEM_STATS mem_get_stats() noexcept;
/// Bytes of mem_get_global_current.
TUK_MEM_API std::int64_t mem_get_current_bytes() noexcept;

/// Opens a local region: from here on the local peak measures the largest use. Regions nest; keep
/// the result and hand it to mem_exit_local_region.
TUK_MEM_API MEM_BASE_STATS mem_enter_local_region() noexcept;
/// Closes a region and returns its peak. The local peak becomes the larger of the region's peak
/// and `saved`, the enclosing region's.
TUK_MEM_API MEM_BASE_STATS mem_exit_local_region(const MEM_BASE_STATS& saved) noexcept;

// ---------------------------------------------------------------------------------------------
// Out of memory
// ---------------------------------------------------------------------------------------------

/// Gives the calling thread, and the process, a zeroed spare block of 4096 bytes each; nothing
/// after an out-of-memory event was reported. Runs mem_out_of_memory when malloc fails.
TUK_MEM_API void mem_allocate_spare_memory();
/// Frees the calling thread's spare block and the process-wide one.
TUK_MEM_API void mem_free_spare_memory();
/// Frees the spare blocks, reports once (through the host's handler, else on standard error with
/// the process's peak in decimal megabytes) and ends the process with status 1. Any thread; a
/// second one waits for the first one's reports, ten seconds at most, and ends the process without
/// more. Where the library itself is at work on this thread it throws std::bad_alloc instead, which
/// the library catches.
[[noreturn]] TUK_MEM_API void mem_out_of_memory();
/// mem_out_of_memory in the shape of a handler that returns an int.
TUK_MEM_API int mem_microsoft_new_handler();
/// Installs mem_out_of_memory as the new-handler of the runtime and of the allocator's malloc,
/// and remembers the host's own handler (may be null).
TUK_MEM_API void mem_set_out_of_memory_handler(void (*handler)());
/// Forwards to the allocator's tc_set_new_mode; -1 when the allocator has none.
TUK_MEM_API int mem_tc_set_new_mode(int mode);

// ---------------------------------------------------------------------------------------------
// Process and system memory
// ---------------------------------------------------------------------------------------------
// Every query opens, reads and closes a file below /proc. Results are bytes unless said
// otherwise, and 0 when the file cannot be read. `pid` is a process id of this machine; the form
// without one asks about the calling process.

/// The system's page size in bytes.
TUK_MEM_API std::uint64_t mem_getpagesize();
/// Minor plus major page faults of this process (a count).
TUK_MEM_API std::uint64_t mem_info_get_process_page_fault_count();
/// Virtual size now.
TUK_MEM_API std::uint64_t mem_info_get_process_current_virtual_used(unsigned long pid);
TUK_MEM_API std::uint64_t mem_info_get_process_current_virtual_used();
/// Resident size now.
TUK_MEM_API std::uint64_t mem_info_get_process_current_working_set_size(unsigned long pid);
TUK_MEM_API std::uint64_t mem_info_get_process_current_working_set_size();
/// Largest resident size.
TUK_MEM_API std::uint64_t mem_info_get_process_peak_working_set_size(unsigned long pid);
TUK_MEM_API std::uint64_t mem_info_get_process_peak_working_set_size();
/// Largest virtual size as the system keeps it.
TUK_MEM_API std::uint64_t mem_info_get_process_peak_virtual_used_from_os(unsigned long pid);
TUK_MEM_API std::uint64_t mem_info_get_process_peak_virtual_used_from_os();
/// The same as the _from_os form.
TUK_MEM_API std::uint64_t mem_info_get_process_peak_virtual_used(unsigned long pid);
TUK_MEM_API std::uint64_t mem_info_get_process_peak_virtual_used();
/// Swap in use on the machine: the same figure as the page-file query, as the hosts' displays
/// expect.
TUK_MEM_API std::uint64_t mem_info_get_system_current_physical_in_use();
/// Largest value the query above has ever returned in this process, the present included.
TUK_MEM_API std::uint64_t mem_info_get_system_peak_physical_in_use();
/// Swap in use on the machine.
TUK_MEM_API std::uint64_t mem_info_get_system_current_page_file_in_use();
/// Largest value the query above has ever returned in this process, the present included.
TUK_MEM_API std::uint64_t mem_info_get_system_peak_page_file_in_use();

// ---------------------------------------------------------------------------------------------
// Fill patterns and allocation log (debugging aids of the hooked allocator)
// ---------------------------------------------------------------------------------------------
// Without the allocator's hook interface these do nothing.

/// Fills every new block with the low 8 bits of `pattern`.
TUK_MEM_API void mem_set_alloc_pattern(int pattern);
/// Fills every block with the low 8 bits of `pattern` before it is released.
TUK_MEM_API void mem_set_free_pattern(int pattern);
/// Stops both.
TUK_MEM_API void mem_disable_alloc_patterns();
/// Switches the log of every allocation and release, "mem_allocations.log" in the report directory,
/// on (truncating it the first time) or off (the file stays open).
TUK_MEM_API void mem_set_print_allocations_callback_enabled(bool on);

// ---------------------------------------------------------------------------------------------
// Tracking: configuration
// ---------------------------------------------------------------------------------------------

/// What is tracked: a bit set.
enum MEM_TRACKING_GRANULARITY : std::uint32_t {
  MEM_TRACK_NONE = 0,
  MEM_TRACK_PER_BIN = 1,              ///< global statistics and profile bins
  MEM_TRACK_PER_BIN_DETAILED = 2,     ///< every block charged to its bin and tag
  MEM_TRACK_PER_LIBRARY = 4,          ///< figures per module
  MEM_TRACK_PER_FILELINE = 8,         ///< figures per allocation site
  MEM_TRACK_LEAKS = 16,               ///< full leak report
  MEM_TRACK_LEAKS_FAST = 32,          ///< two-line leak summary
  MEM_TRACK_AUXILIARY_TIMELINE = 64,  ///< sampled process figures
  MEM_TRACK_ALL = 95,                 ///< everything but MEM_TRACK_LEAKS_FAST and call paths
  MEM_TRACK_CALL_PATHS = 128          ///< figures per call path, besides those of the sites
};

constexpr MEM_TRACKING_GRANULARITY operator|(MEM_TRACKING_GRANULARITY a,
                                             MEM_TRACKING_GRANULARITY b) noexcept {
  return static_cast<MEM_TRACKING_GRANULARITY>(static_cast<std::uint32_t>(a) |
                                               static_cast<std::uint32_t>(b));
}
constexpr MEM_TRACKING_GRANULARITY operator&(MEM_TRACKING_GRANULARITY a,
                                             MEM_TRACKING_GRANULARITY b) noexcept {
  return static_cast<MEM_TRACKING_GRANULARITY>(static_cast<std::uint32_t>(a) &
                                               static_cast<std::uint32_t>(b));
}
constexpr MEM_TRACKING_GRANULARITY operator~(MEM_TRACKING_GRANULARITY a) noexcept {
  return static_cast<MEM_TRACKING_GRANULARITY>(~static_cast<std::uint32_t>(a));
}

/// What the environment and the settings ask for. Also notes which reports were asked for.
TUK_MEM_API MEM_TRACKING_GRANULARITY mem_get_tracking_granularity_from_env();
/// Whether the process's allocator has the hook interface and answers for malloc: without it no
/// heap block is seen, whatever is tracked, and reports of them hold zeros. For gates that must not
/// take such a report for a clean one. Known from start-up on.
TUK_MEM_API bool mem_allocator_is_hooked();
/// Brings the tracker up, once per process. Start-up does so before main: a later call changes
/// nothing, and says on the debug channel if it asks for more than is tracked; see
/// mem_enable_tracking. Throws std::invalid_argument or std::out_of_range on a setting that is no
/// number, after one line on standard error that names it, its text and what is allowed, and
/// std::runtime_error when the tracker's memory pool cannot be created.
TUK_MEM_API void mem_initialize_tbb_tracking(MEM_TRACKING_GRANULARITY granularity);
/// Both of the above.
TUK_MEM_API void mem_initialize_tbb_tracking_from_env();
/// Brings the tracker up with MEM_TRACK_PER_BIN if it is not up yet, then switches summary bins.
TUK_MEM_API void mem_set_tbb_memory_tracking_enabled(bool on);
/// Whether summary bins are on.
TUK_MEM_API bool mem_get_tbb_memory_tracking_enabled();
/// Adds bits to what is tracked; from zero, installs the allocator hooks. Call after
/// initialisation; without effect once tracking has been shut down. Bins can't be switched on by
/// this alone: mem_open_profile_bin also looks at what initialisation found, and at
/// mem_set_tbb_memory_tracking_enabled. Figures of what is switched on late can be negative: blocks
/// from before are released, too.
TUK_MEM_API void mem_enable_tracking(MEM_TRACKING_GRANULARITY bits);
/// Removes bits; at zero, removes the allocator hooks.
TUK_MEM_API void mem_disable_tracking(MEM_TRACKING_GRANULARITY bits);
/// Whether every bit asked for is on (true for none).
TUK_MEM_API bool mem_tracking_is_enabled(MEM_TRACKING_GRANULARITY bits);
/// Switches MEM_TRACK_PER_BIN, and nothing else.
TUK_MEM_API void mem_set_tbb_track_alloc_dealloc(bool on);
/// Whether MEM_TRACK_PER_BIN is on.
TUK_MEM_API bool mem_get_tbb_track_alloc_dealloc();

/// Switches MEM_TRACK_PER_BIN off for a scope, for the whole process; the former state comes back.
/// Nests. Every other kind of tracking goes on.
class TUK_MEM_API MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT {
 public:
  MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT();
  ~MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT();
  MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT(
      const MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT&) = delete;
  MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT& operator=(
      const MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT&) = delete;

 private:
  bool m_was_on;
};
/// Forgets every live block, site, module and tag figure, and the last recorded peak: the
/// accounting starts afresh. Figures of bins, timelines of modules, labels and flushed peaks stay.
/// A block from before is credited to the catch-all when it is released, so that its figures can be
/// negative, and not taken from the total. Internal error before initialisation. [signal]
TUK_MEM_API void mem_reset_tracking_entries();

/// Accounts a memory mapping of `size` bytes at `address`, or its removal, like a block. The first
/// call may initialise the tracker from the environment. The host's mapping notifier calls both; a
/// host without one may.
extern "C" TUK_MEM_API void mem_notify_memory_mapping_added(void const* address,
                                                            unsigned long size);
extern "C" TUK_MEM_API void mem_notify_memory_mapping_removed(void const* address,
                                                              unsigned long size);
/// Sets the tag in the names of the report files ("kvi" at first). It goes into the names as it is:
/// one with a slash puts the reports into another directory, which has to be there. Null, or a call
/// before initialisation, is an internal error.
TUK_MEM_API void mem_set_tbb_exe_string(char const* exe_string);
/// The tag; "" before initialisation and after cleanup. The text stays for the life of the process.
TUK_MEM_API char const* mem_get_tbb_exe_string();

/// Excludes the calling thread's allocations and releases from tracking. Returns whether they
/// were excluded already; unblock only when this call answered false.
extern "C" TUK_MEM_API bool mem_block_thread_tracking();
/// Includes them again. Returns whether they were excluded.
extern "C" TUK_MEM_API bool mem_unblock_thread_tracking();
/// Whether the calling thread is excluded.
extern "C" TUK_MEM_API bool mem_am_blocked();

// ---------------------------------------------------------------------------------------------
// Tracking: records and queries
// ---------------------------------------------------------------------------------------------

/// A symbolized code address. Zeroed before first use. Texts are cut to their buffers.
struct MEM_ADDRESS_INFO {
  void const* address;             ///< the code address described
  std::int32_t line;               ///< source line, 0 when unknown
  char module_name_buffer[65];     ///< file name without directory, "lib" and ".so..."
  char file_name_buffer[257];      ///< source file path as the symbolizer reports it
  char function_name_buffer[513];  ///< demangled function name
  bool module_info_valid;          ///< the module fields have been filled
  char const* module_path;         ///< path as the dynamic loader reports it; the loader's text
  void* module_base;               ///< load address; null for a file without ".so" in its name
  char const* symbol_name;         ///< nearest exported symbol; may be null
  void* symbol_address;            ///< that symbol's address
};

/// The counters of a module; also the leading part of every allocation site's record.
/// "Bytes" are the sizes the allocator gave, unless "requested" is said.
struct MEMORY_TRACKER_BASE {
  std::uint32_t current_blocks;               ///< live now; read as signed, for the catch-all
  std::uint32_t max_blocks;                   ///< largest current_blocks
  std::uint32_t peak_blocks;                  ///< current_blocks at the last recorded peak
  std::uint32_t guard;                        ///< the tracker's own; says nothing in a copy
  std::uint64_t cumulative_blocks;            ///< ever allocated
  std::int64_t current_bytes;                 ///< live now
  std::int64_t max_bytes;                     ///< largest current_bytes
  std::int64_t peak_bytes;                    ///< current_bytes at the last recorded peak
  std::uint64_t cumulative_bytes;             ///< ever allocated
  std::uint64_t cumulative_requested_bytes;   ///< ever asked for by the callers
  std::uint64_t cumulative_mismatched_bytes;  ///< freed by another thread, blocks up to 8128 bytes
};

/// An allocation site.
struct MEM_ADDRESS_TRACKER : MEMORY_TRACKER_BASE {
  MEM_ADDRESS_INFO address_info;  ///< where; all zeros in the catch-all record
  MEMORY_TRACKER_BASE* module;    ///< its module's record; null until first charged to one
  bool filtered;                  ///< rejected by the frame filters: charges nothing
};

/// Copies the record of the site that allocated the live block at `block`; false when the block
/// is not known. For null, copies the catch-all record. Internal error before initialisation.
/// [signal]
TUK_MEM_API bool mem_get_address_tracker(void const* block, MEM_ADDRESS_TRACKER& out);
/// Copies the record of the module `name`; false when there is none. Internal error before
/// initialisation. [signal]
TUK_MEM_API bool mem_get_module_tracker(std::string const& name, MEMORY_TRACKER_BASE& out);

// ---------------------------------------------------------------------------------------------
// Tracking: profile bins and timelines
// ---------------------------------------------------------------------------------------------
// A bin is a stretch of the host's work, a tag a group of bins. Open and close bins on one thread
// at a time, the host's main thread; while one is open, the blocks of every thread are charged to
// it.

/// Opens a bin. Under MEM_TRACK_PER_BIN it measures the process's bytes until it is closed; under
/// MEM_TRACK_PER_BIN_DETAILED it is counted as "tag::name", an empty tag standing for the enclosing
/// one ("Root" at the outside). A non-empty tag also becomes the timeline label, when
/// MEM_TRACK_PER_BIN and MEM_TRACK_PER_LIBRARY are both on. Names go into the reports as they are:
/// a tab or a line break in one breaks its row. Bins nest; the same one may be opened again, also
/// while it is open.
TUK_MEM_API void mem_open_profile_bin(const std::string& name, const std::string& tag);
/// Closes the bin opened last. `tag` is the one it was opened with: tags must nest, or it is an
/// internal error, as is closing more than was opened. Stores the process's bytes at the opening,
/// at the close and at most between; zeros without MEM_TRACK_PER_BIN. No pointer may be null.
TUK_MEM_API void mem_close_profile_bin(const std::string& tag, std::uint64_t* start_bytes,
                                       std::uint64_t* end_bytes, std::uint64_t* peak_bytes);

/// Sets the label that the rows of the module timeline get from now on. [signal]
TUK_MEM_API void mem_set_timeline_label(const std::string& label);
/// Keeps the tags of bins from setting labels, for good. The current label stays.
TUK_MEM_API void mem_disable_profile_bin_tag_timeline_labels();

/// Hands the peak recorded so far on to the reports and starts looking for the next one: the
/// reports at the end show the highest peak flushed, unless a later phase rose above it. [signal]
TUK_MEM_API void mem_tbb_tracking_flush_peak();
/// Takes one sample of every timeline now. Internal error before initialisation. (The sample that
/// a recorded peak forces is taken once the release that met it has been credited: its row can lie
/// below the peak.) [signal]
TUK_MEM_API void mem_user_snapshot_tracking_data();

// ---------------------------------------------------------------------------------------------
// Tracking: reports and shutdown
// ---------------------------------------------------------------------------------------------

// A dump copies the figures of one moment and writes them with no lock held: the stream may do what
// it likes, wait for other threads included. Its locale and flags neither change the text nor are
// changed.

/// Writes the report per allocation site: largest peak first, then by current bytes, cumulative
/// bytes and address. True, but for a refused signal handler. [signal]
TUK_MEM_API bool mem_dump_tbb_fileline_tracking(std::ostream& out);
/// Writes the report per module, in the same order with the name for the address. True. [signal]
TUK_MEM_API bool mem_dump_tbb_subsystem_tracking(std::ostream& out);
/// Writes the counters of every bin and of every tag that was charged, in bytes; always true. A row
/// may mix figures of two moments while blocks are being charged. [signal]
TUK_MEM_API bool mem_dump_tbb_profile_bin_stats_tracking(std::ostream& out);
TUK_MEM_API bool mem_dump_tbb_profile_bin_tag_stats_tracking(std::ostream& out);
/// Writes the timeline of modules: a summary of the 18 largest and a table of all. False, with
/// nothing written, when either stream has failed already, or there is no timeline. [signal]
TUK_MEM_API bool mem_dump_tbb_module_tracking(std::ostream& summary, std::ostream& detailed);
/// The same for tags, each row headed by the bin that was open; always true. [signal]
TUK_MEM_API bool mem_dump_tbb_profile_bin_tag_timeline_tracking(std::ostream& summary,
                                                                std::ostream& detailed);
/// Writes the whole set of reports as of this moment into a directory of its own: "snapshot-0001"
/// and so on in the report directory, by default the current one. It is there complete, or not at
/// all: then one line on standard error says why. Figures, peaks and timelines go on as without it.
/// Other threads that allocate wait while the figures are copied, not while they are written. Waits
/// for another thread's snapshot. Nothing before initialisation and after the end, and in a signal
/// handler that interrupted the tracker. [signal]
TUK_MEM_API void mem_write_report_snapshot();
/// Ends tracking for good and writes every report asked for into the report directory, by default
/// the current one; one line on standard error names each that can't be written whole. Does nothing
/// before initialisation and the second time, nor when an error ends the process from inside the
/// tracker's own accounting: that thread would wait for itself. Of two threads that end tracking at
/// once one does it and the other waits; called again on its own thread, by a callback for
/// instance, it returns at once. A bin beyond the 65536th that is open now is left out of the tag
/// timeline's last sample, which is said on the debug channel.
TUK_MEM_API void mem_shutdown_tbb_tracking();
/// Runs the shutdown and frees the tracker, with the same promises. Does nothing before
/// initialisation.
TUK_MEM_API void mem_cleanup_tbb_tracking();

// ---------------------------------------------------------------------------------------------
// Text formatting
// ---------------------------------------------------------------------------------------------
// No state is shared: every function may run on several threads at once, each on texts of its own.

/// Appends formatted text to `out` and returns the number of characters produced; 0 for an empty
/// format, negative once the number has left the range of int (the text ends there). Neither
/// pointer may be null, and no argument may point into `out`. Uses no heap but for the growth of
/// `out`; what that throws passes on, with part of the text appended.
///
/// A conversion is `%[flags][width][.precision][size]conversion`, as for printf, independent of
/// the C library's locale but for wide characters:
/// - flags: blank, `#`, `+`, `-`, `0` (it pads every conversion, `%s` and `%c` as well); width and
///   precision: digits or `*`; a negative `*` is a left-aligned width, or no precision;
/// - sizes: `h` (also when doubled) short, `l`, `ll` and `I64` 64 bits, `w` wide characters; `F`,
///   `L` and `N` are ignored;
/// - `d i u o x X`: integers. `#` gives hexadecimal its prefix for every value, also 0;
/// - `p`: sixteen upper-case hexadecimal digits, after "0X" with `#`;
/// - `c s`: narrow, or wide with `l` or `w`; `C S`: wide unless `h`, `l` or `w` is given, and with
///   those as `c s`. A null text is "(null)". Wide characters are converted as wctomb does; one
///   that has no multi-byte form ends its text;
/// - `Z`: a pointer to { unsigned short bytes; unsigned short capacity; char* text; }, the text
///   wide with `w`; "(null)" when either pointer is null;
/// - `e E f g G`: a double, all of them in fixed-point form and, for the hosts' files, never with
/// an
///   exponent: "%e" of 1234.5 is "1234.500000". There are at most 17 decimals, trailing zeros
///   stay, precision 0 keeps the point ("4."; with `g` and `G` it counts as 1), `#` changes
///   nothing, and no number comes out as "0.inf" or "0.nan";
/// - `n`: stores the count so far (64 bits with `l`, `ll` or `I64`, 16 with `h`, else 32);
/// - `B`: takes no argument, gives no text.
/// Any other character ends the conversion and stands for itself ("%%" is "%"), and so does an
/// `I` without 64: "%I32d" is "I32d". An unfinished conversion at the end gives nothing.
TUK_MEM_API int stl_output(std::string* out, const char* format, va_list args);

/// Replaces the content of `out` with what the C library's vsnprintf makes of the format, which is
/// not stl_output's syntax. Nothing happens when a pointer is null, the C library reports an error
/// or memory for a text beyond 8191 characters is missing. `args` stays usable.
TUK_MEM_API void stl_vsprintf(std::string* out, const char* format, va_list args)
    TUK_MEM_PRINTF(2, 0);

namespace MEM_DETAIL {
/// stl_vsprintf of its own arguments.
TUK_MEM_API void stl_raw_sprintf(std::string* out, const char* format, ...) TUK_MEM_PRINTF(2, 3);
}  // namespace MEM_DETAIL

/// Copies as much of `src` as fits into the `size` bytes of `dst` and terminates it. Returns the
/// length of `src`: `size` or more says that the copy was cut. The terminator is, as callers
/// expect, written for size 0 too: `dst` always has room for one character.
TUK_MEM_API std::size_t stl_strlcpy(char* dst, const char* src, std::size_t size);
/// Appends as much of `src` as fits into the `size` bytes of `dst` in all and terminates it.
/// Returns the length found in `dst` plus the length of `src`: `size` or more says that the text
/// was cut. A `dst` without a terminator among its first `size` - 1 characters loses the
/// last of its `size` to the terminator: callers pass buffers that were filled to the brim.
TUK_MEM_API std::size_t stl_strlcat(char* dst, const char* src, std::size_t size);
/// The same, but appends `count` characters at most. The result still counts all of `src`, which
/// has to be terminated.
TUK_MEM_API std::size_t stl_strlncat(char* dst, const char* src, std::size_t count,
                                     std::size_t size);
/// Makes upper case of the 26 ASCII letters, in place, and leaves all other bytes alone, in
/// whatever locale. Returns `text`.
TUK_MEM_API std::string& stl_toupper(std::string& text);
/// The same for one character, returned.
TUK_MEM_API char stl_toupper(char c);
/// Makes lower case of the 26 ASCII letters, in place, and leaves all other bytes alone, in
/// whatever locale. Returns `text`.
TUK_MEM_API std::string& stl_tolower(std::string& text);
/// The same for one character, returned.
TUK_MEM_API char stl_tolower(char c);

// ---------------------------------------------------------------------------------------------
// Chunk allocator
// ---------------------------------------------------------------------------------------------

/// An arena: hands out zero-filled pieces of 32768-byte chunks and frees all of them at once.
/// Not thread-safe; use one from one thread at a time. Running out of memory is
/// mem_out_of_memory's business, no operation fails.
///
/// The setting "mem_utils_no_chunk_allocation", read once per process, turns every arena into a
/// front of malloc, so that memory checkers see each piece. The owner then frees piece by piece
/// with chunk_delete_when_chunking_disabled; a program that always calls it is right in both modes.
class TUK_MEM_API MEM_UTILS_CHUNK_ALLOC {
 public:
  /// An empty arena with the fragment threshold 100.
  MEM_UTILS_CHUNK_ALLOC();
  MEM_UTILS_CHUNK_ALLOC(const MEM_UTILS_CHUNK_ALLOC&) = delete;
  MEM_UTILS_CHUNK_ALLOC& operator=(const MEM_UTILS_CHUNK_ALLOC&) = delete;
  /// Frees no piece: owners keep pieces beyond their arena. Call chunk_free_memory first to free
  /// them.
  ~MEM_UTILS_CHUNK_ALLOC();

  /// `size` zeroed bytes at a multiple of `alignment`, which must not be 0. Never null, also for
  /// size 0. A piece that opens a chunk is aligned as malloc aligns (16 bytes), whatever was asked
  /// for; so is every piece while chunking is off. Sizes above 32768 get a block of their own, and
  /// from the 501st of those each one is reported on the debug channel.
  void* chunk_malloc(std::size_t size, std::size_t alignment);
  /// Frees every piece and starts afresh; the threshold stays. Does not free pieces handed out
  /// while chunking is off.
  void chunk_free_memory();
  /// Frees one piece while chunking is off, else nothing.
  void chunk_delete_when_chunking_disabled(void* piece);
  /// A piece that does not fit into a chunk with at least this many bytes left gets a block of its
  /// own, and the chunk stays in use. 0: every piece that does not fit does, and no chunk is ever
  /// started.
  void set_fragment_threshold(unsigned int bytes);
  /// Whether pieces come out of chunks.
  bool chunk_allocation_is_enabled();

 private:
  struct BLOCK;

  void* chunk_malloc_slowly(std::size_t size, std::size_t alignment);
  void* start_chunk(std::size_t size);
  void* separate_block(std::size_t size, std::size_t alignment);
  void count_large_allocation();
  void record(void* block);

  BLOCK* m_blocks = nullptr;  // what was obtained from the C allocator
  std::uint64_t m_remaining = 0;
  char* m_current = nullptr;
  std::uint32_t m_fragment_threshold = 100;
  std::int32_t m_large_allocations = 0;
  bool m_chunking_enabled;
};

// ---------------------------------------------------------------------------------------------
// Controls of the process's allocator
// ---------------------------------------------------------------------------------------------

/// Forwards to the extension interface of the process's allocator. Each operation searches the
/// process for its function (named in brackets) when it is first called and never again, whatever
/// is loaded later. Arguments and results pass unchanged; threads as the allocator's functions.
namespace MEM::MALLOC_EXTENSION {

/// A figure of the allocator, for instance "generic.current_allocated_bytes". Not 0 when the
/// allocator knows the name; -1, and `value` untouched, without the function
/// [MallocExtension_GetNumericProperty].
TUK_MEM_API int get_numeric_property(const char* name, std::size_t* value);
/// Gives free memory back to the system; nothing without the function
/// [MallocExtension_ReleaseFreeMemory].
TUK_MEM_API void release_free_memory();
/// How eagerly the allocator gives memory back by itself: 0 never, 10 very; -1.0 without the
/// function [MallocExtension_GetMemoryReleaseRate].
TUK_MEM_API double get_memory_release_rate();
/// Sets that rate; nothing without the function [MallocExtension_SetMemoryReleaseRate].
TUK_MEM_API void set_memory_release_rate(double rate);
/// Sends a text to the debug channel. The text is the format itself, as hosts pass it: it must not
/// hold a per-cent sign.
TUK_MEM_API void print_message(const std::string& text);

namespace DETAIL {
/// Address of the exported function `name` anywhere in the process; null when there is none.
TUK_MEM_API void* find_tcmalloc_function(const char* name);
}  // namespace DETAIL

}  // namespace MEM::MALLOC_EXTENSION

// ---------------------------------------------------------------------------------------------
// Modules built with profile-guided optimisation
// ---------------------------------------------------------------------------------------------

/// Notes that `module` was optimised for the workload `profile` describes. Both texts are copied;
/// neither may be null. The process lists the pairs on standard output when it ends, each once and
/// in byte order, if the setting "debug_msg" was on at start-up.
TUK_MEM_API void mem_register_dll_for_pgo(char const* module, char const* profile);

#endif  // TUK_MEM_H
