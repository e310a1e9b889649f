// The sanitizers' settings, built into every instrumented program: the end-to-end tests start theirs with an
// environment of their own. The runtimes look these functions up by name.

extern "C" {

const char* __asan_default_options() {
  return "strict_string_checks=1:detect_stack_use_after_return=1:check_initialization_order=1";
}

const char* __ubsan_default_options() { return "print_stacktrace=1"; }

const char* __tsan_default_options() { return "halt_on_error=1:second_deadlock_stack=1"; }

// What the thread sanitizer cannot see: libnss-wrapper takes its locks while it is loaded, GLib has locks of its own.
const char* __tsan_default_suppressions() {
  return "mutex:libnss_wrapper.so\n"
         "called_from_lib:libglib-2.0.so\n"
         "called_from_lib:libgobject-2.0.so\n"
         "called_from_lib:libgio-2.0.so\n"
         "called_from_lib:libsecret-1.so\n";
}

}  // extern "C"
