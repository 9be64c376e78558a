// Byte hashes. Each byte counts as a signed char, so bytes above 127 add a
// negative number; that is the defined hash and stays so, since stored
// hashes depend on it.
#include <sorn.h>

namespace {

inline uint32_t step(uint32_t h, char c) {
  h = (h << 4) + (uint32_t)(int32_t)(signed char)c;
  const uint32_t g = h & 0xF0000000u;
  return h ^ (g | (g >> 24));
}

}  // namespace

uint32_t sorn_bcshash(const char *s) {
  uint32_t h = 0;
  for (; *s; ++s) h = step(h, *s);
  return h;
}

uint32_t sorn_bcsnhash(const char *s, size_t n) {
  uint32_t h = 0;
  for (size_t i = 0; i < n && s[i]; ++i) h = step(h, s[i]);
  return h;
}

uint32_t sorn_bhash(const void *p, size_t n) {
  const char *s = static_cast<const char *>(p);
  uint32_t h = 0;
  for (size_t i = 0; i < n; ++i) h = step(h, s[i]);
  return h;
}
