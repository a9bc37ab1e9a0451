# What only builds for Windows need.
if(WIN32)
  enable_language(RC)
  # Windows 10: the oldest that the browser runtime runs on. Its headers would otherwise bring macros
  # named min and max, and half of the system.
  add_compile_definitions(WINVER=0x0A00 _WIN32_WINNT=0x0A00 UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN)
endif()

# pennywort_version_resource(<target> <description>): the version that the file's properties show.
# Nothing on other systems.
function(pennywort_version_resource target file_description)
  if(NOT WIN32)
    return()
  endif()
  get_target_property(type ${target} TYPE)
  get_target_property(base ${target} OUTPUT_NAME)
  if(NOT base)
    set(base ${target})
  endif()
  if(type STREQUAL EXECUTABLE)
    set(file_type VFT_APP)
    set(file_name ${base}.exe)
  else()
    set(file_type VFT_DLL)
    set(file_name ${base}.dll)
  endif()
  set(resource ${PROJECT_BINARY_DIR}/generated/${target}.rc)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/windows/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()

# pennywort_program_manifest(<target>): a program that takes its arguments and file names in UTF-8.
# Nothing on other systems, where they are.
function(pennywort_program_manifest target)
  if(NOT WIN32)
    return()
  endif()
  set(resource ${PROJECT_BINARY_DIR}/generated/program.rc)
  configure_file(${PROJECT_SOURCE_DIR}/packaging/windows/program.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()
