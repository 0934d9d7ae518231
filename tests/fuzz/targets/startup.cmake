vxio_fuzz_target(startup startup_fuzz.cpp ${VXIO_ROOT}/startup/definition_text.cpp)
