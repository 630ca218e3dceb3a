// Read by the thread sanitizer's runtime where it is built in: tests fork children that start
// threads of their own.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }
