# find_package(FramehubOpenCV COMPONENTS core imgproc ...): the OpenCV
# modules as targets opencv_<module>, with or without OpenCV's own package.
include(${CMAKE_CURRENT_LIST_DIR}/FramehubOpenCV.cmake)
framehub_find_opencv(${FramehubOpenCV_FIND_COMPONENTS})
set(FramehubOpenCV_FOUND TRUE)
