// The plain symbolizer: one addr2line child per module, one answer per address.
#pragma once

#include <memory>
#include <vector>

#include "mem/base/bookkeeping.h"
#include "mem/base/spin_lock.h"
#include "mem/base/static_storage.h"
#include "mem/symbolizer/addr2line_tool.h"
#include "mem/symbolizer/symbolizer.h"

class MEM_SYMBOLIZER_ADDR2LINE final : public MEM_SYMBOLIZER {
 public:
  /// There to the end of the process: threads may still ask while it exits.
  static MEM_SYMBOLIZER_ADDR2LINE* get_instance();

  char const* get_name() const override { return "addr2line"; }
  bool get_module_info(void const* address, MEM_ADDRESS_INFO& info) override;
  bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info) override;
  using MEM_SYMBOLIZER::get_source_and_function_info;
  MEM_SYMBOL_ANSWER ask(void const* address, MEM_ADDRESS_INFO& info,
                        std::vector<MEM_ADDRESS_INFO>& inlined) override;

  class IMPL {
   public:
    /// mem_parse_plain_answer.
    static bool parse_addr2line_output(char const* text, MEM_ADDRESS_INFO& info);

    class ADDR2LINE_HANDLE;
    class CACHE;
  };
};

/// A module's file with a tool of its own.
class MEM_SYMBOLIZER_ADDR2LINE::IMPL::ADDR2LINE_HANDLE {
 public:
  explicit ADDR2LINE_HANDLE(MEM_MODULE_FILE& file);

  const MEM_BOOKKEEPING_STRING& module_name() const { return m_module_name; }
  const MEM_MODULE_FILE& file() const { return *m_file; }

  class IMPL {
   public:
    explicit IMPL(MEM_MODULE_FILE& file)
        : m_tool("-f -C", MEM_ADDR2LINE_TOOL::ENDING::two_lines, file) {}

    /// Asks for an address of the module's file and stores the answer, cut to the buffer and
    /// terminated.
    MEM_TOOL_OUTCOME get_data(unsigned long long address, char* buffer, unsigned long size);
    void abandon() { m_tool.abandon(); }

   private:
    MEM_ADDR2LINE_TOOL m_tool;
  };
  IMPL& tool() const { return *m_impl; }

 private:
  std::shared_ptr<IMPL> m_impl;
  MEM_BOOKKEEPING_STRING m_module_name;
  MEM_MODULE_FILE* m_file;
};

/// The running tools, most recently used last.
class MEM_SYMBOLIZER_ADDR2LINE::IMPL::CACHE {
 public:
  static CACHE singleton_instance;
  static constexpr std::size_t most_tools = 32;

  /// Asks the module's tool and stores its answer. Locks: one request is in flight per process.
  MEM_TOOL_OUTCOME get_data(const MEM_ADDRESS_INFO& info, MEM_MODULE_FILE& file, char* buffer,
                            unsigned long size);

  /// The handle of a module's file, made when needed, at the expense of the least recently used one
  /// beyond 32. Hold the cache's lock.
  ADDR2LINE_HANDLE* get_handle(MEM_MODULE_FILE& file);

  /// Ends every tool. A later request starts one again.
  void clear();
  /// Lets go of every tool, in a child made by fork.
  void abandon();

 private:
  using HANDLES = std::vector<ADDR2LINE_HANDLE, MEM_BOOKKEEPING_ALLOCATOR<ADDR2LINE_HANDLE>>;

  MEM_STATIC_SPIN_MUTEX m_lock;
  // Never destroyed: other modules' destructors still allocate.
  MEM_NEVER_DESTROYED<HANDLES> m_handles;
  MEM_NEVER_DESTROYED<HANDLES> m_abandoned;
};
