#ifndef FRAMEHUB_SRC_GSTREAMER_CAMERA_GSTREAMER_H
#define FRAMEHUB_SRC_GSTREAMER_CAMERA_GSTREAMER_H

#include "pipeline/camera_2d.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>

typedef struct _GstElement GstElement;
typedef struct _GstMessage GstMessage;
typedef struct _GstSample GstSample;

namespace Kelmo {
namespace FrameHub {

// A camera fed by a GStreamer pipeline. The back-end argument is the source
// part in gst-launch syntax ("videotestsrc is-live=true",
// "rtspsrc location=rtsp://host/stream latency=100 ! decodebin"); the camera
// appends
//   videoconvert ! videoscale ! videorate ! capsfilter ! appsink
// with YUY2 at its current size and rate in the filter and an appsink that
// keeps only the newest frame (max-buffers=1 drop=true).
//
// Options go before the source, separated by spaces:
//   loop=true   at the end of a clip, seek back to its start and go on.
// Without it the end is logged once and every fetch gets nothing, also
// after the core's resets, until the last subscriber has left.
//
// Lifecycle: open parses and goes to READY, start to PLAYING, stop to
// PAUSED, close to NULL. The bus is read at every fetch and state change;
// no main loop and no thread of ours. A fetch waits three frame periods at
// most (two seconds until the first frame after a start, a change of format
// or a loop back to the start, for sources that connect and pipelines that
// renegotiate or flush), in slices, so that an error on the bus ends it early.
//
// The raw frames are YUV 4:2:2 whatever the description's colour spaces.
class CameraGStreamer : public Camera2D {
public:
    CameraGStreamer(const std::string& name, const std::string& backendArgument);
    ~CameraGStreamer() override;

protected:
    bool _openDevice() override;
    bool _closeDevice() override;
    bool _startStreaming() override;
    bool _stopStreaming() override;
    bool _setResolution(const Resolution& resolution) override;
    bool _setColorSpace(const ColorSpace& colorSpace) override;
    bool _setFrameRate(int frameRate) override;
    bool _getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer) override;

    // Null while closed. Tests reach elements of the source through it.
    GstElement* _pipeline;

private:
    // Drains the bus; false once the pipeline failed or a clip ended.
    bool _pollBus(const char* function);
    bool _handleMessage(GstMessage* message, const char* function);
    // Puts the current size and rate into the caps filter.
    void _applyCaps();
    // False when the sample is not (or no longer) at the camera's format.
    bool _copySample(GstSample* sample, ImageBuffer& buffer);
    bool _setState(int state, const char* function);
    int64_t _waitMilliseconds() const;

    std::string _source;
    bool _loop;
    GstElement* _capsFilter;
    GstElement* _sink;
    // An error on the bus, cleared by a new pipeline.
    bool _failed;
    // The end of a clip that doesn't loop.
    bool _ended;
    // No frame since the last start or format change: allow a source its
    // time to connect and the pipeline to renegotiate.
    bool _settling;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
