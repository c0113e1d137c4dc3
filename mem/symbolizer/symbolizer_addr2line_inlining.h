// The default symbolizer: every frame inlined at an address, and different tools at the same time.
#pragma once

#include <memory>
#include <vector>

#include "mem/base/bookkeeping.h"
#include "mem/base/spin_lock.h"
#include "mem/base/static_storage.h"
#include "mem/symbolizer/addr2line_tool.h"
#include "mem/symbolizer/symbolizer.h"

/// A tool that knows no end mark does not tell how many lines its answer has: what comes within
/// "mem_symbolizer_addr2line_usecs" microseconds after a piece still belongs to it. The setting is
/// read with the first address; with neither a host callback nor a variable it is 0, and the
/// answer is then what the tool has written by the time a piece ends in a line end.
class MEM_SYMBOLIZER_ADDR2LINE_INLINING final : public MEM_SYMBOLIZER {
 public:
  /// There to the end of the process: threads may still ask while it exits.
  static MEM_SYMBOLIZER_ADDR2LINE_INLINING* get_instance();

  char const* get_name() const override { return "addr2line_inlining"; }
  bool get_module_info(void const* address, MEM_ADDRESS_INFO& info) override;
  bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info) override;
  /// `address` is a return address: the frames described are those of the call before it.
  bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info,
                                    std::vector<MEM_ADDRESS_INFO>& inlined) override;
  MEM_SYMBOL_ANSWER ask(void const* address, MEM_ADDRESS_INFO& info,
                        std::vector<MEM_ADDRESS_INFO>& inlined) override;

  class IMPL {
   public:
    /// mem_parse_inlined_answer; always true.
    static bool parse_addr2line_output(char const* text, MEM_ADDRESS_INFO& info,
                                       std::vector<MEM_ADDRESS_INFO>& inlined);

    class ADDR2LINE_HANDLE;
    class CACHE;
  };
};

/// A module's file with a tool of its own.
class MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL::ADDR2LINE_HANDLE {
 public:
  explicit ADDR2LINE_HANDLE(MEM_MODULE_FILE& file);

  const MEM_BOOKKEEPING_STRING& module_name() const { return m_module_name; }
  const MEM_MODULE_FILE& file() const { return m_file; }
  /// Hold it for an exchange with the tool.
  tbb::spin_mutex& lock() { return m_lock; }

  /// Asks for the byte before an address of the module's file and stores the whole answer, cut to
  /// the buffer and terminated. `buffer` comes zeroed and stays so when there is no answer.
  MEM_TOOL_OUTCOME get_data(unsigned long long address, char* buffer, unsigned long size);
  void abandon() { m_tool.abandon(); }

 private:
  tbb::spin_mutex m_lock;
  MEM_BOOKKEEPING_STRING m_module_name;
  MEM_MODULE_FILE& m_file;
  MEM_ADDR2LINE_TOOL m_tool;
};

/// The running tools, most recently used last.
class MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL::CACHE {
 public:
  static CACHE singleton_instance;
  static constexpr std::size_t most_tools = 32;

  /// The cache's own reference to a handle, plus one per thread that uses it. Whoever drops the
  /// last one ends the tool, so that neither an eviction nor clear() waits for an answer, or takes
  /// a tool from under a thread.
  using HANDLE = std::shared_ptr<ADDR2LINE_HANDLE>;

  /// Asks the module's tool and stores its answer. Locks only the tool for that.
  MEM_TOOL_OUTCOME get_data(const MEM_ADDRESS_INFO& info, MEM_MODULE_FILE& file, char* buffer,
                            unsigned long size);

  /// get_handle under the cache's lock. The module keeps its tool while the result lives.
  HANDLE take_handle(const MEM_ADDRESS_INFO& info, MEM_MODULE_FILE& file);

  /// The handle of a module's file, made when needed, beyond 32 at the expense of the least
  /// recently used one that nobody uses; while all are in use, of none. Hold the cache's lock.
  HANDLE get_handle(MEM_MODULE_FILE& file, HANDLE& evicted);

  /// Ends every tool, one in use after its answer. A later request starts one again.
  void clear();
  /// Lets go of every tool, in a child made by fork.
  void abandon();

 private:
  using HANDLES = std::vector<HANDLE, MEM_BOOKKEEPING_ALLOCATOR<HANDLE>>;

  MEM_STATIC_SPIN_MUTEX m_lock;
  // Never destroyed: other modules' destructors still allocate.
  MEM_NEVER_DESTROYED<HANDLES> m_handles;
  MEM_NEVER_DESTROYED<HANDLES> m_abandoned;
};
