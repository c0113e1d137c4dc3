# What whoever links the library needs, in this project, in one that includes it and in one that
# finds it installed. In the cache, since a host's targets may stand in any of its directories.

# Links one library whether or not anything of it is called, and leaves all others alone.
set(CMAKE_LINK_LIBRARY_USING_tuk_mem_always_needed_SUPPORTED TRUE CACHE INTERNAL "")
set(CMAKE_LINK_LIBRARY_USING_tuk_mem_always_needed
    "LINKER:--push-state,--no-as-needed" "<LINK_ITEM>" "LINKER:--pop-state" CACHE INTERNAL "")

# The allocator with the hook interface, for executables; the library itself finds it at run time.
# By its full name: without the development package there is no libtcmalloc.so.
find_library(TCMALLOC_LIBRARY NAMES libtcmalloc.so.4
             DOC "The allocator with the hook interface")
mark_as_advanced(TCMALLOC_LIBRARY)
if(TCMALLOC_LIBRARY AND NOT TARGET tuk_mem::allocator)
  add_library(tuk_mem::allocator INTERFACE IMPORTED GLOBAL)
  set_target_properties(tuk_mem::allocator PROPERTIES INTERFACE_LINK_LIBRARIES
      "$<LINK_LIBRARY:tuk_mem_always_needed,${TCMALLOC_LIBRARY}>")
endif()
