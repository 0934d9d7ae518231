vxio_fuzz_target(restore_records restore_records_fuzz.cpp ${VXIO_ROOT}/acl/records.cpp ${VXIO_ROOT}/acl/vocabulary.cpp)
