// Status stubs. A kernel lookup hands one of these back for a combination
// that has no kernel, so that a caller can always call what it was given;
// they look at none of the arguments they are called with.
#include <sorn.h>

SornStatus sorna_proc_einval(void) { return SORN_EINVAL; }
SornStatus sorna_proc_enotsup(void) { return SORN_ENOTSUP; }
SornStatus sorna_proc_enotimp(void) { return SORN_ENOTIMP; }
