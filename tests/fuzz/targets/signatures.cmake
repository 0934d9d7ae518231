vxio_fuzz_target(signatures signatures_fuzz.cpp ${VXIO_ROOT}/tools/vxio/signatures.cpp)
