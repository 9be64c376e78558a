#include <sorn.h>
#include <stdio.h>

int main(void) {
  uint8_t a[6] = {200, 1, 2, 3, 4, 5}, b[6] = {100, 1, 1, 1, 1, 1}, d[6];
  int32_t dims[3] = {2, 3, 1}, strides[3] = {3, 1, 1};
  SornArray ra, rb, rd;
  __sorn_array__$xtrn(&ra, 3 | 3 << 8, dims, SORN_U8, a, NULL, strides);
  __sorn_array__$xtrn(&rb, 3 | 3 << 8, dims, SORN_U8, b, NULL, strides);
  __sorn_array__$xtrn(&rd, 3 | 3 << 8, dims, SORN_U8, d, NULL, strides);
  SornXE xe = {0};
  SornXEinit(&xe, NULL);
  SornStatus st = SornAdd(&xe, 0, &rd, &ra, &rb, NULL, NULL, NULL, 0, 0);
  SornXEfini(&xe);
  printf("status %lld, 200 + 100 = %u\n", (long long)st, d[0]);
  return st == SORN_OK && d[0] == 44 ? 0 : 1;
}
