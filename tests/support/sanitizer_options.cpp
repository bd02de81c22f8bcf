// Objects that live until the process ends are no leaks, also where a test drops its pointer.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
  return "leak:immortal\n";
}
