# Reads the export names from vxio.def into VXIO_EXPORT_NAMES, checks that
# they are exactly the engine's list of names when that list is at hand,
# and writes
# them as a C string list for the black-box tests.
function(vxio_read_exports def_file out_var)
  file(STRINGS ${def_file} lines)
  set(names "")
  set(in_exports FALSE)
  foreach(line IN LISTS lines)
    string(STRIP "${line}" line)
    if(line STREQUAL "EXPORTS")
      set(in_exports TRUE)
    elseif(in_exports AND line MATCHES "^[A-Za-z_][A-Za-z0-9_]*$")
      list(APPEND names ${line})
    endif()
  endforeach()
  set(${out_var} ${names} PARENT_SCOPE)
endfunction()

function(vxio_check_exports names engine_list)
  if(NOT EXISTS ${engine_list})
    return()
  endif()
  file(STRINGS ${engine_list} known)
  foreach(name IN LISTS names)
    if(NOT name IN_LIST known)
      message(FATAL_ERROR "vxio.def exports ${name}, which the engine does not know")
    endif()
  endforeach()
  # Every name the engine resolves must be there as well: exports_test then
  # proves that the DLL's export table is exactly vxio.def, hence exactly
  # the engine's list.
  foreach(name IN LISTS known)
    if(name AND NOT name IN_LIST names)
      message(FATAL_ERROR "the engine resolves ${name}, which vxio.def does not export")
    endif()
  endforeach()
endfunction()

function(vxio_write_export_list names out_file)
  set(text "/* Generated from vxio.def: the names vxio.dll must export. */\n")
  foreach(name IN LISTS names)
    string(APPEND text "\"${name}\",\n")
  endforeach()
  file(CONFIGURE OUTPUT ${out_file} CONTENT "${text}")
endfunction()
