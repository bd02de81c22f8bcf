// Objects that live until the process ends are no leaks, also where a test drops its pointer. Those
// of block caches hang on links that are not aligned, which the leak checker does not see.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
  return "leak:immortal\nleak:simple_item_cache\n";
}

// A forked child that ends need not wait for threads that never do.
extern "C" const char* __tsan_default_options();

extern "C" const char* __tsan_default_options() {
  return "atexit_sleep_ms=0";
}
