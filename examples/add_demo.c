/* add_demo: two small images added with and without saturation.
 *
 * Shows the life of a call: an execution environment, two records that
 * describe caller-owned pixels, SornAdd with scale factor 0 (wrapping) and
 * 1 (doubling, saturated), and the environment closed again. */
#include <sorn.h>
#include <stdio.h>

#define ROWS 3
#define COLS 4

static void show(const char *title, const uint8_t *p) {
  printf("%s\n", title);
  for (int y = 0; y < ROWS; ++y) {
    for (int x = 0; x < COLS; ++x) printf(" %3u", p[y * COLS + x]);
    printf("\n");
  }
}

static SornArray image(uint8_t *pixels) {
  SornArray a;
  int32_t dims[3] = {ROWS, COLS, 1};
  int32_t strides[3] = {COLS, 1, 1};
  /* pack: 3 cells given, none in front of them */
  return *__sorn_array__$xtrn(&a, 3 | 3 << 8, dims, SORN_U8, pixels, NULL, strides);
}

int main(void) {
  uint8_t a[ROWS * COLS], b[ROWS * COLS], sum[ROWS * COLS];
  for (int i = 0; i < ROWS * COLS; ++i) {
    a[i] = (uint8_t)(20 * i);
    b[i] = (uint8_t)(100 + 10 * i);
  }
  SornXE xe = {0};
  SornXEinit(&xe, NULL);

  SornArray ra = image(a), rb = image(b), rs = image(sum);
  show("a:", a);
  show("b:", b);

  SornStatus st = SornAdd(&xe, 0, &rs, &ra, &rb, NULL, NULL, NULL, 0, 0);
  printf("SornAdd sf=0 (wraps modulo 256): status %lld\n", (long long)st);
  show("a + b:", sum);

  st = SornAdd(&xe, 0, &rs, &ra, &rb, NULL, NULL, NULL, 1, 0);
  printf("SornAdd sf=1 ((a + b) * 2, saturated to 0..255): status %lld\n", (long long)st);
  show("2 * (a + b):", sum);

  st = SornAdd(&xe, 0, &rs, &ra, &rb, NULL, NULL, NULL, -1, 0);
  printf("SornAdd sf=-1 ((a + b) / 2, rounded to even): status %lld\n", (long long)st);
  show("(a + b) / 2:", sum);

  SornXEfini(&xe);
  return st == SORN_OK ? 0 : 1;
}
