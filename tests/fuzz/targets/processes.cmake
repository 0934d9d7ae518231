vxio_fuzz_target(processes processes_fuzz.cpp ${VXIO_ROOT}/process/native_records.cpp)
