vxio_fuzz_target(loader loader_fuzz.cpp ${VXIO_ROOT}/process/loader_walk.cpp ${VXIO_ROOT}/process/native_records.cpp)
