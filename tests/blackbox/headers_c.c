/* Every public header must be valid C99 on its own. */
#include "vxio/acl.h"
#include "vxio/alloc.h"
#include "vxio/fs.h"
#include "vxio/io.h"
#include "vxio/lock_sha1.h"
#include "vxio/name_cache.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"
#include "vxio/startup.h"
#include "vxio/vxio.h"

int vxio_headers_compile_as_c(void) { return (int)sizeof(IoTable); }
