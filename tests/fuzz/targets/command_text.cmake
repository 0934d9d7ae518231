vxio_fuzz_target(command_text command_text_fuzz.cpp ${VXIO_ROOT}/startup/command_text.cpp)
