# pennywort_public_names_only(<target>): a shared library of ours exports the names listed in
# exports.map and no other. On Windows the export marks of the headers alone decide.
function(pennywort_public_names_only target)
  if(WIN32)
    return()
  endif()
  set(map ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  target_link_options(${target} PRIVATE "LINKER:--version-script=${map}")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
endfunction()
