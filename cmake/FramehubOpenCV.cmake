# Debian ships OpenCV's CMake package only with the all-modules libopencv-dev;
# the per-module -dev packages we depend on carry headers and libraries alone.
# Define imported targets opencv_<module> either way.
function(framehub_find_opencv)
  set(modules ${ARGN})
  find_package(OpenCV QUIET COMPONENTS ${modules})
  if(OpenCV_FOUND)
    return()
  endif()
  find_path(FRAMEHUB_OPENCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
  foreach(module IN LISTS modules)
    if(TARGET opencv_${module})
      continue()
    endif()
    find_library(FRAMEHUB_OPENCV_${module}_LIBRARY opencv_${module} REQUIRED)
    add_library(opencv_${module} SHARED IMPORTED GLOBAL)
    set_target_properties(opencv_${module} PROPERTIES
      IMPORTED_LOCATION ${FRAMEHUB_OPENCV_${module}_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES ${FRAMEHUB_OPENCV_INCLUDE_DIR})
    message(STATUS "OpenCV ${module}: ${FRAMEHUB_OPENCV_${module}_LIBRARY}")
  endforeach()
endfunction()
