/* Prints where the library's indirect function for one kernel points, as
   an offset into libSorn.so.1: the copy that the load chose. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>

#include <sorn.h>

int main(void) {
  /* The library is linked; asking the dynamic linker for the name gives the
     address its resolver chose (a function pointer taken in this program
     could be the program's own entry for the name instead). */
  void *chosen = dlsym(RTLD_DEFAULT, "sorna__add_c1_u8u8u8");
  Dl_info info;
  if (chosen == NULL || !dladdr(chosen, &info)) {
    fprintf(stderr, "sorna__add_c1_u8u8u8 not found\n");
    return 1;
  }
  printf("%lx\n", (unsigned long)((const char *)chosen - (const char *)info.dli_fbase));
  return 0;
}

/* Keeps the library among the program's dependencies. */
int (*const keep_library)(SornXE *, SornFlags) = SornXEuseSimd;
