# GStreamer through pkg-config, for the camera back-end and for any tool that
# needs the same libraries. Defines the imported target PkgConfig::GST (core,
# app and video libraries) and sets FRAMEHUB_GSTREAMER_FOUND, and
# PkgConfig::GST_RTSP (the RTSP server) with FRAMEHUB_RTSP_SERVER_FOUND; quiet
# when they are absent, so callers decide what to say.
include_guard(GLOBAL)

find_package(PkgConfig QUIET)
set(FRAMEHUB_GSTREAMER_FOUND FALSE)
if(PkgConfig_FOUND)
  pkg_check_modules(GST QUIET IMPORTED_TARGET GLOBAL gstreamer-1.0 gstreamer-app-1.0 gstreamer-video-1.0)
  if(GST_FOUND)
    set(FRAMEHUB_GSTREAMER_FOUND TRUE)
  endif()
  pkg_check_modules(GST_RTSP QUIET IMPORTED_TARGET GLOBAL gstreamer-rtsp-server-1.0)
endif()
set(FRAMEHUB_RTSP_SERVER_FOUND FALSE)
if(FRAMEHUB_GSTREAMER_FOUND AND GST_RTSP_FOUND)
  set(FRAMEHUB_RTSP_SERVER_FOUND TRUE)
endif()
