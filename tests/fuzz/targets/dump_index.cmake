vxio_fuzz_target(dump_index dump_index_fuzz.cpp ${VXIO_ROOT}/process/dump_index.cpp)
