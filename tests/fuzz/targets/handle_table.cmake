vxio_fuzz_target(handle_table handle_table_fuzz.cpp ${VXIO_ROOT}/process/handle_table.cpp)
