# The version is written once, in project() of the top-level CMakeLists.txt.
# From it come vxio/version.h (VXIO_VERSION_*, included by base.h and
# installed with the other headers) and the VERSIONINFO resources of
# vxio.dll and vxio.exe.
set(VXIO_VERSION_STRING
  "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}")
set(VXIO_GENERATED_INCLUDE_DIR ${CMAKE_BINARY_DIR}/include)
configure_file(${CMAKE_CURRENT_LIST_DIR}/version.h.in
  ${VXIO_GENERATED_INCLUDE_DIR}/vxio/version.h @ONLY)
install(FILES ${VXIO_GENERATED_INCLUDE_DIR}/vxio/version.h DESTINATION include/vxio)

# The resources are compiled by windres (the toolchain's CMAKE_RC_COMPILER).
enable_language(RC)

# vxio_version_resource(TARGET FILE_NAME DESCRIPTION): gives TARGET a
# VERSIONINFO resource naming it FILE_NAME, described as DESCRIPTION.
function(vxio_version_resource target file_name description)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    set(VXIO_RC_FILETYPE VFT_DLL)
  else()
    set(VXIO_RC_FILETYPE VFT_APP)
  endif()
  set(VXIO_RC_FILENAME ${file_name})
  get_filename_component(VXIO_RC_INTERNAL_NAME ${file_name} NAME_WE)
  set(VXIO_RC_DESCRIPTION "${description}")
  set(VXIO_RC_VERSION ${VXIO_VERSION_STRING})
  set(rc ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${rc} @ONLY)
  target_sources(${target} PRIVATE ${rc})
endfunction()
