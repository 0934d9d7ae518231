vxio_fuzz_target(storage storage_fuzz.cpp ${VXIO_ROOT}/io/storage_answers.cpp)
