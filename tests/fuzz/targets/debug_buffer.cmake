vxio_fuzz_target(debug_buffer debug_buffer_fuzz.cpp ${VXIO_ROOT}/process/native_records.cpp)
