vxio_fuzz_target(names names_fuzz.cpp ${VXIO_ROOT}/io/name_text.cpp)
