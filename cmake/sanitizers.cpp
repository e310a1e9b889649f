// The sanitizers' settings, built into every instrumented program: the end-to-end tests start theirs with an
// environment of their own. The runtimes look these functions up by name.

extern "C" {

const char* __asan_default_options() {
  return "strict_string_checks=1:detect_stack_use_after_return=1:check_initialization_order=1";
}

const char* __ubsan_default_options() { return "print_stacktrace=1"; }

// Tests fork beside their own servers, and what they fork has threads as well.
const char* __tsan_default_options() { return "halt_on_error=1:second_deadlock_stack=1:die_after_fork=0"; }

// What the thread sanitizer cannot see: libnss-wrapper takes its locks while it is loaded, GLib has locks of its own,
// by which it also hands over the texts of its errors, and what orders the web servers of the tests is their requests.
const char* __tsan_default_suppressions() {
  return "mutex:libnss_wrapper.so\n"
         "called_from_lib:libglib-2.0.so\n"
         "called_from_lib:libgobject-2.0.so\n"
         "called_from_lib:libgio-2.0.so\n"
         "called_from_lib:libsecret-1.so\n"
         "race:orvanta::Keychain::Backend\n"
         "race:libcpp-httplib.so\n"
         "race:httplib::\n";
}

}  // extern "C"
