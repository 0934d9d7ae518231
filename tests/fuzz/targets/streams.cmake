vxio_fuzz_target(streams streams_fuzz.cpp ${VXIO_ROOT}/fs/stream_records.cpp)
