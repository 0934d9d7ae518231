vxio_fuzz_target(acl acl_fuzz.cpp ${VXIO_ROOT}/acl/command_parser.cpp)
