#include "gstreamer/camera_gstreamer.h"

#include "types/framehub_log.h"

#include <lumo/os.h>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <sstream>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.cameragstreamer")

namespace {

const char* const kCapsFilterName = "framehub_caps";
const char* const kSinkName = "framehub_sink";

// A fetch pulls in slices this long so that an error on the bus ends it
// early instead of at the deadline.
const int64_t kSliceMilliseconds = 20;
// Until the first frame after a start or a change of format: network
// sources connect, clips preroll, the elements renegotiate.
const int64_t kSettlingMilliseconds = 2000;
// Messages drained per poll; the rest waits for the next fetch.
const int kMaxMessagesPerPoll = 256;

// Once per process; the application may have initialised GStreamer already.
bool initialiseGStreamer(std::string& error)
{
    static std::string failure;
    static const bool initialised = [] {
        GError* e = nullptr;
        if (gst_init_check(nullptr, nullptr, &e))
            return true;
        failure = e ? e->message : "unknown error";
        g_clear_error(&e);
        return false;
    }();
    error = failure;
    return initialised;
}

// Leading "loop=..." tokens are ours; the rest is the source description.
std::string stripOptions(const std::string& argument, bool& loop, std::string& badOption)
{
    std::string rest = argument;
    for (;;) {
        const size_t start = rest.find_first_not_of(" \t");
        if (start == std::string::npos)
            return std::string();
        rest.erase(0, start);
        if (rest.compare(0, 5, "loop=") != 0)
            return rest;
        const size_t end = rest.find_first_of(" \t");
        const std::string value = rest.substr(5, end == std::string::npos ? std::string::npos : end - 5);
        if (value == "true")
            loop = true;
        else if (value == "false")
            loop = false;
        else
            badOption = "loop=" + value;
        rest.erase(0, end == std::string::npos ? rest.size() : end);
    }
}

struct ErrorText {
    std::string message, debug;
};

ErrorText parseErrorOrWarning(GstMessage* message)
{
    GError* error = nullptr;
    gchar* debug = nullptr;
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR)
        gst_message_parse_error(message, &error, &debug);
    else
        gst_message_parse_warning(message, &error, &debug);
    ErrorText text;
    text.message = error && error->message ? error->message : "(no text)";
    text.debug = debug ? debug : "";
    g_clear_error(&error);
    g_free(debug);
    return text;
}

} // namespace

CameraGStreamer::CameraGStreamer(const std::string& name, const std::string& backendArgument)
    : Camera2D("GStreamer", name)
    , _pipeline(nullptr)
    , _loop(false)
    , _capsFilter(nullptr)
    , _sink(nullptr)
    , _failed(false)
    , _ended(false)
    , _settling(true)
{
    std::string badOption;
    _source = stripOptions(backendArgument, _loop, badOption);
    if (!badOption.empty())
        FRAMEHUB_LOG(LEVEL_WARNING) << name << ": unknown option " << badOption << ", use loop=true or loop=false.";
}

CameraGStreamer::~CameraGStreamer() { close(); }

bool CameraGStreamer::_openDevice()
{
    std::string initError;
    if (!initialiseGStreamer(initError)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": GStreamer can't be initialised: " << initError;
        return false;
    }
    if (_source.empty()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": no source pipeline given.";
        return false;
    }
    const std::string description = _source + " ! videoconvert ! videoscale ! videorate ! capsfilter name="
        + kCapsFilterName + " ! appsink name=" + kSinkName + " max-buffers=1 drop=true";
    GError* error = nullptr;
    // Fatal errors: a missing element must fail here, not leave a half pipeline.
    GstElement* pipeline = gst_parse_launch_full(description.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error);
    if (!pipeline || error) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": can't build the pipeline \"" << _source
                                  << "\": " << (error && error->message ? error->message : "unknown error");
        g_clear_error(&error);
        if (pipeline)
            gst_object_unref(pipeline);
        return false;
    }
    GstElement* caps = GST_IS_BIN(pipeline) ? gst_bin_get_by_name(GST_BIN(pipeline), kCapsFilterName) : nullptr;
    GstElement* sink = GST_IS_BIN(pipeline) ? gst_bin_get_by_name(GST_BIN(pipeline), kSinkName) : nullptr;
    if (!caps || !sink || !GST_IS_APP_SINK(sink)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": the pipeline \"" << _source
                                  << "\" hides the camera's own caps filter or sink.";
        if (caps)
            gst_object_unref(caps);
        if (sink)
            gst_object_unref(sink);
        gst_object_unref(pipeline);
        return false;
    }
    _pipeline = pipeline;
    _capsFilter = caps;
    _sink = sink;
    _failed = false;
    _settling = true;
    _applyCaps();
    if (!_setState(GST_STATE_READY, __func__)) {
        _closeDevice();
        return false;
    }
    return true;
}

bool CameraGStreamer::_closeDevice()
{
    // A clip that ended stays ended through the core's resets, until nobody
    // is subscribed any more.
    if (_preferences.empty())
        _ended = false;
    if (!_pipeline)
        return true;
    gst_element_set_state(_pipeline, GST_STATE_NULL);
    gst_object_unref(_sink);
    gst_object_unref(_capsFilter);
    gst_object_unref(_pipeline);
    _pipeline = _capsFilter = _sink = nullptr;
    return true;
}

bool CameraGStreamer::_startStreaming()
{
    _settling = true;
    if (_ended)
        return true; // fetches report the end without playing it again
    return _setState(GST_STATE_PLAYING, __func__);
}

bool CameraGStreamer::_stopStreaming() { return _setState(GST_STATE_PAUSED, __func__); }

bool CameraGStreamer::_setState(int state, const char* function)
{
    if (!_pipeline) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << _name << ": the pipeline is not open.";
        return false;
    }
    const GstStateChangeReturn result = gst_element_set_state(_pipeline, static_cast<GstState>(state));
    // A failed change posts its reason on the bus; log that text.
    const bool alive = _pollBus(function);
    if (result == GST_STATE_CHANGE_FAILURE) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << _name << ": the pipeline can't go to "
                                               << gst_element_state_get_name(static_cast<GstState>(state)) << ".";
        return false;
    }
    // Stopping or closing a pipeline that failed has nothing left to fail.
    return state != GST_STATE_PLAYING || alive || _ended;
}

bool CameraGStreamer::_setResolution(const Resolution& resolution)
{
    if (resolution.width == 0 || resolution.height == 0 || resolution.width > G_MAXINT
        || resolution.height > G_MAXINT) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": can't capture at " << resolution.width << "x" << resolution.height
                                  << ".";
        return false;
    }
    _currentPreferences.setResolution(resolution);
    _applyCaps();
    return true;
}

bool CameraGStreamer::_setColorSpace(const ColorSpace& colorSpace)
{
    if (colorSpace == COLORSPACE_YUV_422)
        return true;
    FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": captures in colorspace " << static_cast<int>(COLORSPACE_YUV_422)
                              << " only, not " << static_cast<int>(colorSpace) << ".";
    return false;
}

bool CameraGStreamer::_setFrameRate(int frameRate)
{
    // The core asks for 1 with nobody subscribed; keep to the described range.
    if (!_nativelySupportedFrameRates.empty()) {
        const int lowest = *_nativelySupportedFrameRates.begin();
        const int highest = *_nativelySupportedFrameRates.rbegin();
        frameRate = std::min(std::max(frameRate, lowest), highest);
    }
    _currentPreferences.setRefreshRate(std::max(1, frameRate));
    _applyCaps();
    return true;
}

void CameraGStreamer::_applyCaps()
{
    if (!_capsFilter)
        return;
    const Resolution size = _currentPreferences.getResolution();
    if (size.width == 0 || size.height == 0 || size.width > G_MAXINT || size.height > G_MAXINT)
        return; // not negotiated yet
    GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "YUY2", "width", G_TYPE_INT,
        static_cast<int>(size.width), "height", G_TYPE_INT, static_cast<int>(size.height), "framerate",
        GST_TYPE_FRACTION, std::max(1, _currentPreferences.getRefreshRate()), 1, nullptr);
    GstCaps* current = nullptr;
    g_object_get(_capsFilter, "caps", &current, nullptr);
    if (!current || !gst_caps_is_equal(current, caps)) {
        // Setting the property while playing renegotiates upstream.
        g_object_set(_capsFilter, "caps", caps, nullptr);
        _settling = true;
    }
    if (current)
        gst_caps_unref(current);
    gst_caps_unref(caps);
}

int64_t CameraGStreamer::_waitMilliseconds() const
{
    if (_settling)
        return kSettlingMilliseconds;
    const int rate = std::max(1, _currentPreferences.getRefreshRate());
    return std::max<int64_t>(3 * 1000 / rate, 2 * kSliceMilliseconds);
}

bool CameraGStreamer::_pollBus(const char* function)
{
    if (!_pipeline)
        return false;
    GstBus* bus = gst_element_get_bus(_pipeline);
    // Everything is popped, not only what we act on, so that the queue
    // doesn't grow while nobody else reads it.
    for (int i = 0; i < kMaxMessagesPerPoll; ++i) {
        GstMessage* message = gst_bus_pop(bus);
        if (!message)
            break;
        _handleMessage(message, function);
        gst_message_unref(message);
    }
    gst_object_unref(bus);
    return !_failed && !_ended;
}

bool CameraGStreamer::_handleMessage(GstMessage* message, const char* function)
{
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR: {
        const ErrorText text = parseErrorOrWarning(message);
        // The debug text names the file, host or device that failed.
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << _name << ": " << GST_MESSAGE_SRC_NAME(message) << ": " << text.message
                                               << (text.debug.empty() ? "" : "\n") << text.debug;
        _failed = true;
        return false;
    }
    case GST_MESSAGE_WARNING: {
        const ErrorText text = parseErrorOrWarning(message);
        FRAMEHUB_LOG_AS(LEVEL_WARNING, function)
            << _name << ": " << GST_MESSAGE_SRC_NAME(message) << ": " << text.message;
        return true;
    }
    case GST_MESSAGE_EOS:
        if (_loop) {
            FRAMEHUB_LOG_AS(LEVEL_VERBOSE, function) << _name << ": end of stream, back to the start.";
            if (gst_element_seek_simple(_pipeline, GST_FORMAT_TIME,
                    static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT), 0)) {
                _settling = true; // the flush restarts the decoders
                return true;
            }
            FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << _name << ": the source can't seek back to its start.";
        } else {
            FRAMEHUB_LOG_AS(LEVEL_INFO, function) << _name << ": end of stream.";
        }
        _ended = true;
        return false;
    default:
        return true;
    }
}

bool CameraGStreamer::_getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer)
{
    if (!buffer || !_pipeline) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": no pipeline or no buffer to grab into.";
        return false;
    }
    typedef std::chrono::steady_clock Clock;
    const int64_t wait = _waitMilliseconds();
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(wait);
    GstAppSink* sink = GST_APP_SINK(_sink);
    GstBus* bus = gst_element_get_bus(_pipeline);
    bool grabbed = false;
    while (_pollBus(__func__)) {
        const int64_t left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": no frame within " << wait << " ms.";
            break;
        }
        const GstClockTime slice = std::min(left, kSliceMilliseconds) * GST_MSECOND;
        if (gst_app_sink_is_eos(sink)) {
            // The sink returns at once at the end; wait for the bus to say so.
            GstMessage* message = gst_bus_timed_pop_filtered(
                bus, slice, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
            if (message) {
                _handleMessage(message, __func__);
                gst_message_unref(message);
            }
            continue;
        }
        GstSample* sample = gst_app_sink_try_pull_sample(sink, slice);
        if (!sample)
            continue;
        grabbed = _copySample(sample, *buffer);
        gst_sample_unref(sample);
        if (grabbed) {
            _settling = false;
            break;
        }
    }
    gst_object_unref(bus);
    return grabbed;
}

bool CameraGStreamer::_copySample(GstSample* sample, ImageBuffer& buffer)
{
    GstBuffer* frameBuffer = gst_sample_get_buffer(sample);
    GstCaps* caps = gst_sample_get_caps(sample);
    GstVideoInfo info;
    if (!frameBuffer || !caps || !gst_video_info_from_caps(&info, caps)) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "_getDirectRawImage") << _name << ": a sample without video caps.";
        return false;
    }
    const Resolution size = _currentPreferences.getResolution();
    // Frames made before a renegotiation still carry the old size.
    if (GST_VIDEO_INFO_FORMAT(&info) != GST_VIDEO_FORMAT_YUY2 || static_cast<uint64_t>(info.width) != size.width
        || static_cast<uint64_t>(info.height) != size.height) {
        FRAMEHUB_LOG_AS(LEVEL_VERBOSE, "_getDirectRawImage")
            << _name << ": dropped a " << info.width << "x" << info.height << " frame.";
        return false;
    }
    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &info, frameBuffer, GST_MAP_READ)) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "_getDirectRawImage") << _name << ": can't map a frame.";
        return false;
    }
    const uint64_t rowBytes = size.width * 2;
    const uint64_t stride = static_cast<uint64_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0));
    const uint8_t* source = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    // The mapped block bounds the last row, whatever the stride claims.
    const uint64_t mapped = frame.map[0].size, offset = GST_VIDEO_FRAME_PLANE_OFFSET(&frame, 0);
    if (stride < rowBytes || offset + (size.height - 1) * stride + rowBytes > mapped) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "_getDirectRawImage")
            << _name << ": a frame of " << mapped << " bytes with rows of " << stride << " bytes.";
        gst_video_frame_unmap(&frame);
        return false;
    }
    buffer.setColorSpace(COLORSPACE_YUV_422);
    buffer.setResolution(size);
    uint8_t* destination = buffer.getData();
    for (uint64_t row = 0; row < size.height; ++row)
        std::memcpy(destination + row * rowBytes, source + row * stride, rowBytes);
    gst_video_frame_unmap(&frame);

    // The stamp is the moment the frame was due on the pipeline's clock,
    // moved into the platform's wall clock by the age it has now.
    int64_t ageMicroseconds = 0;
    const GstClockTime pts = GST_BUFFER_PTS(frameBuffer);
    const GstSegment* segment = gst_sample_get_segment(sample);
    GstClock* clock = gst_element_get_clock(_pipeline);
    if (clock && segment && GST_CLOCK_TIME_IS_VALID(pts)) {
        const GstClockTime running = gst_segment_to_running_time(segment, GST_FORMAT_TIME, pts);
        const GstClockTime now = gst_clock_get_time(clock);
        if (GST_CLOCK_TIME_IS_VALID(running)) {
            const GstClockTime due = running + gst_element_get_base_time(_pipeline);
            if (now > due)
                ageMicroseconds = static_cast<int64_t>((now - due) / GST_USECOND);
        }
    }
    if (clock)
        gst_object_unref(clock);
    lumo::os::timeval wall;
    lumo::os::gettimeofday(&wall);
    buffer.setTimeStamp(wall.tv_sec * 1000000 + wall.tv_usec - ageMicroseconds);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
