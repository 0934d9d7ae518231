vxio_fuzz_target(kernel_modules kernel_modules_fuzz.cpp ${VXIO_ROOT}/process/native_records.cpp)
