# Warnings are set on each of our targets, not globally, so that imported
# code and third-party targets keep their own. CI builds with FRAMEHUB_WERROR.
option(FRAMEHUB_WERROR "Treat compiler warnings as errors" OFF)

function(framehub_warnings)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE -Wall -Wextra $<$<BOOL:${FRAMEHUB_WERROR}>:-Werror>)
  endforeach()
endfunction()
