vxio_fuzz_target(disk disk_fuzz.cpp ${VXIO_ROOT}/io/disk_layout.cpp)
