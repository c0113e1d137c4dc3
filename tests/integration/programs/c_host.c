/* A host in C: `c_host WHEN WHAT` calls functions of the C interface at one moment of its life. */
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "include/tuk_mem_c.h"

static const char *when, *what;
static int status;

static void expect(bool holds) {
  if (!holds) status = 1;
}

static void measure(void) {
  struct tuk_mem_phase_figures figures = {1, 1, 1};
  expect(tuk_mem_open_profile_bin("outer", "tag"));
  expect(tuk_mem_open_profile_bin("outer", "tag"));
  expect(tuk_mem_close_profile_bin("tag", &figures));
  expect(tuk_mem_close_profile_bin("tag", NULL));
  const struct tuk_mem_base_stats outer = tuk_mem_enter_local_region();
  const struct tuk_mem_base_stats inner = tuk_mem_enter_local_region();
  free(malloc(5000));
  const struct tuk_mem_base_stats peak = tuk_mem_exit_local_region(inner);
  expect(peak.bytes <= tuk_mem_exit_local_region(outer).bytes);
  expect(tuk_mem_get_local_peak().bytes <= tuk_mem_get_global_peak().bytes);
  expect(tuk_mem_get_global_current().bytes <= tuk_mem_get_global_peak().bytes);
}

static void pass_odd_texts(void) {
  static char text[100001];
  memset(text, 'x', sizeof text - 1);
  const char* const texts[] = {NULL, "", text, "\xff\xfe\x80", "a\tb\nc"};
  for (unsigned i = 0; i < sizeof texts / sizeof *texts; ++i) {
    expect(tuk_mem_open_profile_bin(texts[i], texts[i]));
    expect(tuk_mem_close_profile_bin(texts[i], NULL));
    expect(tuk_mem_set_timeline_label(texts[i]));
  }
}

static void switch_kinds(void) {
  expect(tuk_mem_disable_tracking(TUK_MEM_TRACK_PER_LIBRARY));
  expect(tuk_mem_enable_tracking(TUK_MEM_TRACK_PER_LIBRARY));
  expect(tuk_mem_tracking_is_enabled(TUK_MEM_TRACK_NONE));
  if (!mem_block_thread_tracking()) {
    expect(mem_am_blocked());
    mem_unblock_thread_tracking();
  }
  mem_notify_memory_mapping_added(&status, 4096);
  mem_notify_memory_mapping_removed(&status, 4096);
}

static void dump_all(FILE* one, FILE* other) {
  tuk_mem_dump_tbb_fileline_tracking(one);
  tuk_mem_dump_tbb_subsystem_tracking(one);
  tuk_mem_dump_tbb_profile_bin_stats_tracking(one);
  tuk_mem_dump_tbb_profile_bin_tag_stats_tracking(one);
  tuk_mem_dump_tbb_module_tracking(one, other);
  tuk_mem_dump_tbb_profile_bin_tag_timeline_tracking(one, other);
}

static void dump(void) {
  FILE* const file = fopen("/dev/null", "w");
  dump_all(file, file);
  fclose(file);
  expect(!tuk_mem_dump_tbb_fileline_tracking(NULL));
  expect(!tuk_mem_dump_tbb_module_tracking(NULL, NULL));
}

static void take_snapshot(void) { expect(tuk_mem_write_report_snapshot()); }

/* At the thread's cancellation it is in a dump that nobody reads. */
static void dump_to_nobody(void) {
  int ends[2];
  char text[4096] = {0};
  expect(pipe(ends) == 0);
  FILE* const file = fdopen(ends[1], "w");
  setvbuf(file, NULL, _IONBF, 0);
  for (int i = 0; i < 65536 / 4096; ++i) expect(write(ends[1], text, sizeof text) > 0);
  dump_all(file, file);
  expect(false);
}

static void end_twice(void) {
  expect(tuk_mem_shutdown_tbb_tracking());
  expect(tuk_mem_shutdown_tbb_tracking());
}

static void nothing(void) {}

/* The C library asks for memory at the 33rd, with a lock held that other registrations want. */
static void register_exit_functions(void) {
  for (int i = 0; i < 100; ++i) expect(atexit(nothing) == 0);
}

static bool is_time(const char* now) { return strcmp(now, when) == 0; }
static void call_everything(void) {
  measure();
  pass_odd_texts();
  /* Which says so where nothing can be tracked yet. */
  if (!is_time("before_the_library")) switch_kinds();
  dump();
  take_snapshot();
  end_twice();
}

static void end_the_process(void) { exit(status); }

static void act(void) {
  if (strcmp(what, "everything") == 0)
    call_everything();
  else if (strcmp(what, "end_the_process") == 0)
    end_the_process();
  else if (strcmp(what, "dump_to_nobody") == 0)
    dump_to_nobody();
  else
    register_exit_functions();
}

static void act_at(const char* now) {
  if (is_time(now)) act();
}

/* Before any constructor, the library's own included. */
static void before_the_library(int argc, char** argv, char** environment) {
  (void)environment;
  if (argc != 3) _exit(2);
  when = argv[1];
  what = argv[2];
  act_at("before_the_library");
}
__attribute__((section(".preinit_array"), used)) static void (*first)(int, char**,
                                                                      char**) = before_the_library;

__attribute__((constructor)) static void before_main(void) { act_at("before_main"); }
__attribute__((destructor)) static void after_main(void) {
  act_at("after_main");
  if (status != 0) _exit(status);
}
static void at_exit(void) { act_at("at_exit"); }

static void* run(void* none) {
  act();
  return none;
}

static void act_in_a_thread(void) {
  pthread_t thread;
  pthread_attr_t attributes;
  void* result = NULL;
  pthread_attr_init(&attributes);
  if (is_time("in_a_small_thread")) pthread_attr_setstacksize(&attributes, PTHREAD_STACK_MIN);
  expect(pthread_create(&thread, &attributes, run, NULL) == 0);
  if (is_time("cancelled")) {
    usleep(100000);
    expect(pthread_cancel(thread) == 0);
  }
  expect(pthread_join(thread, &result) == 0);
  expect((result == PTHREAD_CANCELED) == is_time("cancelled"));
}

static void act_in_a_child(void) {
  const pid_t child = fork();
  int ended = 0;
  if (child == 0) {
    act();
    exit(status);
  }
  expect(waitpid(child, &ended, 0) == child && ended == 0);
}

int main(void) {
  atexit(at_exit);
  act_at("in_main");
  if (is_time("in_a_thread") || is_time("in_a_small_thread") || is_time("cancelled"))
    act_in_a_thread();
  if (is_time("in_a_child")) act_in_a_child();
  return status;
}
