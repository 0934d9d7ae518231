/* vxio: every family of the exported interface. */
#ifndef VXIO_VXIO_H
#define VXIO_VXIO_H

#include "acl.h"
#include "alloc.h"
#include "fs.h"
#include "io.h"
#include "lock_sha1.h"
#include "name_cache.h"
#include "process.h"
#include "process_memory.h"
#include "startup.h"

#endif /* VXIO_VXIO_H */
