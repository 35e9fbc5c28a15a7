// What ThreadSanitizer has to leave out of its account in these executables.

#if defined(__SANITIZE_THREAD__)

// GLib is not instrumented and its locks are its own, so the sanitizer sees the memory and the
// descriptors that its threads pass around and nothing of what orders them.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libglib-2.0.so\n"
         "called_from_lib:libgobject-2.0.so\n"
         "called_from_lib:libgio-2.0.so\n";
}

#endif
