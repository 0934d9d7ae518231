vxio_fuzz_target(sum_lines sum_lines_fuzz.cpp ${VXIO_ROOT}/tools/vxio/sum_lines.cpp)
