vxio_fuzz_target(reparse reparse_fuzz.cpp ${VXIO_ROOT}/fs/reparse_data.cpp)
