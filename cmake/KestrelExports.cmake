# What shared libraries show. Hidden visibility alone is not enough: instances of the templates of the standard
# library and of Boost are visible wherever they are made, and the loader would share them with other libraries.
# Part of the installed package too, for bundles.

# Lets the target export the names that match the patterns (of C++ the mangled ones) and nothing else.
#   kestrel_export_symbols(<target> pattern...)
function(kestrel_export_symbols target)
  list(JOIN ARGN ";\n    " patterns)
  set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}-exports.map")
  file(CONFIGURE OUTPUT "${script}" CONTENT "{\n  global:\n    @patterns@;\n  local: *;\n};\n" @ONLY)
  target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${script}")
endfunction()

# Lets the target export what its sources export of a namespace: functions, data, and of its classes the tables
# and the type information, without which another library could not catch its exceptions. More patterns may
# follow.
#   kestrel_export_namespace(<target> <a::b> [pattern...])
function(kestrel_export_namespace target namespace)
  string(REPLACE "::" ";" parts "${namespace}")
  set(mangled "")
  foreach(part ${parts})
    string(LENGTH "${part}" length)
    string(APPEND mangled "${length}${part}")
  endforeach()
  kestrel_export_symbols(${target} "_ZN${mangled}*" "_ZNK${mangled}*" "_ZT[ISVT]N${mangled}*" "_ZGVN${mangled}*"
    "_ZTh*_N${mangled}*" "_ZTv*_N${mangled}*" ${ARGN})
endfunction()
