# pennywort_embed(<header> <files...>): writes a header with one array of bytes, k_<name>_<ending>, for
# each file of this folder, again whenever one of them changes.
function(pennywort_embed header)
  set(text "// Made by the build.\n#pragma once\n")
  foreach(file IN LISTS ARGN)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${file})
    file(READ ${CMAKE_CURRENT_SOURCE_DIR}/${file} bytes HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
    get_filename_component(name ${file} NAME)
    string(MAKE_C_IDENTIFIER ${name} name)
    string(APPEND text "inline constexpr unsigned char k_${name}[] = {${bytes}};\n")
  endforeach()
  file(CONFIGURE OUTPUT ${header} CONTENT "${text}" @ONLY)
endfunction()
