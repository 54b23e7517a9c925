// For the ThreadSanitizer build only: the three memory functions as plain byte loops, so that the
// sanitizer sees what they read and write.
#include <cstddef>

extern "C" {

__attribute__((visibility("hidden"))) void* memcpy(void* to, const void* from, size_t n) {
  unsigned char* out = static_cast<unsigned char*>(to);
  const unsigned char* in = static_cast<const unsigned char*>(from);
  for (size_t i = 0; i < n; ++i) {
    out[i] = in[i];
  }
  return to;
}

__attribute__((visibility("hidden"))) void* memmove(void* to, const void* from, size_t n) {
  unsigned char* out = static_cast<unsigned char*>(to);
  const unsigned char* in = static_cast<const unsigned char*>(from);
  if (out < in) {
    for (size_t i = 0; i < n; ++i) {
      out[i] = in[i];
    }
  } else {
    for (size_t i = n; i > 0; --i) {
      out[i - 1] = in[i - 1];
    }
  }
  return to;
}

__attribute__((visibility("hidden"))) void* memset(void* to, int value, size_t n) {
  unsigned char* out = static_cast<unsigned char*>(to);
  for (size_t i = 0; i < n; ++i) {
    out[i] = static_cast<unsigned char>(value);
  }
  return to;
}

}  // extern "C"
