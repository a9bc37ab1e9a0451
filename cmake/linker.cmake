# Where one builds again and again, a hundred programs are linked each time: lld needs a quarter of the
# processor time that the system's linker does. What users get is linked by their system's.
option(PENNYWORT_LINK_WITH_LLD "Link with lld where it is" OFF)
if(PENNYWORT_LINK_WITH_LLD)
  # Where g++ looks for it. Clang takes the one of its own version first.
  find_program(PENNYWORT_LLD ld.lld)
  if(PENNYWORT_LLD)
    # Builds run as many links at once as there are cores.
    add_link_options(-fuse-ld=lld LINKER:--threads=1)
  else()
    message(STATUS "ld.lld is not here, so the system's linker links, which takes longer (Debian: lld)")
  endif()
endif()
