// Cache sizes for the block-size choice of the matrix products. They are
// fixed values of a common desktop processor, not measured: results must not
// depend on the machine, and a block size that is a little off only costs
// speed.
#include <sorn.h>

extern "C" {

int32_t sorn_level1_icache_size(void) { return 32768; }
int32_t sorn_level1_dcache_size(void) { return 32768; }
int32_t sorn_level2_cache_size(void) { return 2097152; }

}  // extern "C"
