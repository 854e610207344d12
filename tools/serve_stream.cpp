#include "serve_stream.h"

#include "render.h"
#include "scene.h"
#include "time_code.h"

#include <lumo/os.h>

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstring>
#include <iostream>

using namespace Kelmo::FrameHub;

namespace serve {

namespace {

int64_t epochMicroseconds()
{
    lumo::os::timeval now;
    lumo::os::gettimeofday(&now);
    return now.tv_sec * 1000000 + now.tv_usec;
}

// How long a freshly configured pipeline is fed without a playing client:
// a live media needs frames before it can describe itself.
const auto kPrerollGrace = std::chrono::seconds(5);

} // namespace

Feeder::Feeder(FrameHub& hub, const std::vector<CameraInfo>& cameras, bool timeCode)
    : _hub(hub)
    , _timeCode(timeCode)
    , _origin(Clock::now())
{
    for (const CameraInfo& info : cameras)
        if (info.model == "Simulator2D" || info.model == "Simulator3D") {
            _cameras.emplace_back(new Simulated);
            _cameras.back()->name = info.name;
            _cameras.back()->depth = info.model == "Simulator3D";
        }
}

Feeder::~Feeder() { stop(); }

void Feeder::start()
{
    _thread = std::thread([this] { run(); });
}

void Feeder::stop()
{
    {
        std::lock_guard<std::mutex> lock(_stopMutex);
        _stop = true;
    }
    _wake.notify_all();
    if (_thread.joinable())
        _thread.join();
}

std::string Feeder::subscribe(const std::string& camera, const std::function<std::string()>& call)
{
    for (auto& c : _cameras)
        if (c->name == camera) {
            std::lock_guard<std::mutex> lock(c->mutex);
            std::string name = call();
            if (!name.empty()) {
                ++c->users;
                // At the size just negotiated, so that the next fetch finds a frame.
                c->due = Clock::now();
                feed(*c, std::chrono::duration<double>(c->due - _origin).count());
            }
            return name;
        }
    return call();
}

bool Feeder::unsubscribe(const std::string& camera, const std::function<bool()>& call)
{
    for (auto& c : _cameras)
        if (c->name == camera) {
            std::lock_guard<std::mutex> lock(c->mutex);
            const bool done = call();
            c->users -= done;
            if (done && c->users > 0) {
                c->due = Clock::now();
                feed(*c, std::chrono::duration<double>(c->due - _origin).count());
            }
            return done;
        }
    return call();
}

void Feeder::feed(Simulated& camera, double t)
{
    const CameraPreferences expected = _hub.getExpectedImageParameters(camera.name);
    const Resolution size = expected.getResolution();
    const int w = static_cast<int>(size.width), h = static_cast<int>(size.height);
    if (w <= 0 || h <= 0 || w > 8192 || h > 8192)
        return;
    if (camera.depth) {
        cv::Mat depth, infrared;
        scene::depthScene(w, h, t, depth, infrared);
        _hub.putImage(camera.name, size, COLORSPACE_DEPTH_16, depth.data);
        _hub.putImage(camera.name, size, COLORSPACE_INFRARED_16, infrared.data);
    } else {
        cv::Mat rgb = scene::testCard(w, h, t);
        if (_timeCode)
            drawTimeCode(rgb.data, w, h, static_cast<uint32_t>(epochMicroseconds() / 1000));
        _hub.putImage(camera.name, size, expected.getColorSpace(), rgb.data);
    }
    const int rate = std::max(1, std::min(240, expected.getRefreshRate()));
    camera.due += std::chrono::microseconds(1000000 / rate);
}

void Feeder::run()
{
    for (;;) {
        Clock::time_point next = Clock::now() + std::chrono::milliseconds(100);
        for (auto& c : _cameras) {
            std::lock_guard<std::mutex> lock(c->mutex);
            if (c->users == 0)
                continue;
            const Clock::time_point now = Clock::now();
            if (c->due <= now) {
                if (c->due < now - std::chrono::milliseconds(100))
                    c->due = now; // fell behind: don't try to catch up
                feed(*c, std::chrono::duration<double>(now - _origin).count());
            }
            next = std::min(next, c->due);
        }
        std::unique_lock<std::mutex> lock(_stopMutex);
        if (_wake.wait_until(lock, next, [this] { return _stop; }))
            return;
    }
}

ServedStream::ServedStream(FrameHub& hub, Feeder& feeder, const StreamOption& option)
    : _hub(hub)
    , _feeder(feeder)
    , _option(option)
{
    switch (option.colorSpace) {
    case COLORSPACE_RGB_888:
        _format = "RGB";
        break;
    case COLORSPACE_BGR_888:
        _format = "BGR";
        break;
    case COLORSPACE_YUV_422:
        _format = "YUY2";
        break;
    case COLORSPACE_Y_8:
    case COLORSPACE_U_8:
    case COLORSPACE_V_8:
    case COLORSPACE_H_8:
    case COLORSPACE_S_8:
    case COLORSPACE_R_8:
    case COLORSPACE_G_8:
    case COLORSPACE_B_8:
        _format = "GRAY8";
        break;
    default:
        _format = nullptr;
        break;
    }
    _direct = _format != nullptr;
    if (!_direct)
        _format = "BGR";
    gst_video_info_set_format(&_info, gst_video_format_from_string(_format), static_cast<guint>(option.size.width),
        static_cast<guint>(option.size.height));
    _info.fps_n = option.rate;
    _info.fps_d = 1;
}

ServedStream::~ServedStream() { stop(); }

std::string ServedStream::rawCaps() const
{
    return "video/x-raw,format=" + std::string(_format) + ",width=" + std::to_string(_option.size.width)
        + ",height=" + std::to_string(_option.size.height) + ",framerate=" + std::to_string(_option.rate) + "/1";
}

void ServedStream::start()
{
    _thread = std::thread([this] { run(); });
}

void ServedStream::stop()
{
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _stop = true;
    }
    _wake.notify_all();
    if (_thread.joinable())
        _thread.join();
    std::lock_guard<std::mutex> lock(_mutex);
    for (GstElement* appsrc : _appsrcs)
        gst_object_unref(appsrc);
    _appsrcs.clear();
}

void ServedStream::attach(GstElement* appsrc)
{
    ++_pipelines;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _appsrcs.push_back(GST_ELEMENT(gst_object_ref(appsrc)));
        _attachedAt = Clock::now();
    }
    _wake.notify_all();
}

void ServedStream::detach(GstElement* appsrc)
{
    --_pipelines;
    std::lock_guard<std::mutex> lock(_mutex);
    auto it = std::find(_appsrcs.begin(), _appsrcs.end(), appsrc);
    if (it != _appsrcs.end()) {
        gst_object_unref(*it);
        _appsrcs.erase(it);
    }
}

void ServedStream::clientJoined()
{
    ++_clients;
    _wake.notify_all();
}

void ServedStream::clientLeft()
{
    if (_clients > 0)
        --_clients;
}

bool ServedStream::_wanted(Clock::time_point now) const
{
    return !_appsrcs.empty() && (_clients > 0 || now - _attachedAt < kPrerollGrace);
}

bool ServedStream::subscribe()
{
    if (!_subscriber.empty())
        return true;
    std::string stem = "serve_" + _option.path;
    std::replace(stem.begin(), stem.end(), '/', '_');
    _subscriber = _feeder.subscribe(_option.camera,
        [&] { return _hub.subscribeCamera(stem, _option.camera, _option.size, _option.colorSpace, _option.rate); });
    if (_subscriber.empty() && !_warnedSubscribe)
        std::cerr << "framehub-serve: stream '" << _option.path << "' could not subscribe to camera '" << _option.camera
                  << "'; trying again every second\n";
    _warnedSubscribe = _subscriber.empty();
    return !_subscriber.empty();
}

void ServedStream::unsubscribe()
{
    if (_subscriber.empty())
        return;
    _feeder.unsubscribe(_option.camera, [&] { return _hub.unsubscribe(_subscriber); });
    _subscriber.clear();
}

void ServedStream::run()
{
    const auto period = std::chrono::microseconds(1000000 / _option.rate);
    Clock::time_point next = Clock::now();
    for (;;) {
        std::vector<GstElement*> appsrcs;
        {
            std::unique_lock<std::mutex> lock(_mutex);
            if (_wake.wait_until(lock, next, [&] { return _stop; }))
                break;
            if (!_wanted(Clock::now())) {
                lock.unlock();
                unsubscribe(); // nobody watches: let the camera close if nothing else uses it
                lock.lock();
                // Bounded: the preroll grace ends without a notification.
                _wake.wait_for(lock, std::chrono::milliseconds(250), [&] { return _stop || _wanted(Clock::now()); });
                next = Clock::now();
                continue;
            }
            for (GstElement* appsrc : _appsrcs)
                appsrcs.push_back(GST_ELEMENT(gst_object_ref(appsrc)));
        }
        if (subscribe()) {
            FrameHub::Buffer image = _hub.getImage(_subscriber);
            if (image)
                push(appsrcs, *image);
            _hub.releaseImage(_subscriber);
            next += period;
        } else {
            next += std::chrono::seconds(1);
        }
        for (GstElement* appsrc : appsrcs)
            gst_object_unref(appsrc);
        const Clock::time_point now = Clock::now();
        if (next < now)
            next = now; // fell behind: don't try to catch up
    }
    unsubscribe();
}

GstBuffer* ServedStream::copyIntoBuffer(const ImageBuffer& image)
{
    if (image.getResolution() != _option.size || image.getColorSpace() != _option.colorSpace) {
        if (!_warnedMismatch)
            std::cerr << "framehub-serve: stream '" << _option.path << "' got an image of another format; skipped\n";
        _warnedMismatch = true;
        return nullptr;
    }
    cv::Mat pixels = ImageBuffer::imageBufferToCvMat(image);
    if (!_direct) {
        render::Snapshot view; // a header only: toPicture reads, and the image is held until release
        view.colorSpace = image.getColorSpace();
        view.pixels = pixels;
        cv::Mat picture = render::toPicture(view);
        if (picture.cols != _info.width || picture.rows != _info.height)
            cv::resize(picture, pixels, cv::Size(_info.width, _info.height), 0, 0, cv::INTER_AREA);
        else
            pixels = picture;
    }
    const size_t rowBytes = static_cast<size_t>(_info.width) * GST_VIDEO_INFO_COMP_PSTRIDE(&_info, 0);
    if (pixels.rows != _info.height || pixels.elemSize() * pixels.cols != rowBytes)
        return nullptr;
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&_info), nullptr);
    GstMapInfo map;
    if (!buffer || !gst_buffer_map(buffer, &map, GST_MAP_WRITE)) {
        if (buffer)
            gst_buffer_unref(buffer);
        return nullptr;
    }
    const size_t stride = GST_VIDEO_INFO_PLANE_STRIDE(&_info, 0);
    for (int row = 0; row < _info.height; ++row)
        std::memcpy(map.data + row * stride, pixels.ptr(row), rowBytes);
    gst_buffer_unmap(buffer, &map);
    return buffer;
}

void ServedStream::push(const std::vector<GstElement*>& appsrcs, const ImageBuffer& image)
{
    GstBuffer* pixels = copyIntoBuffer(image);
    if (!pixels)
        return;
    bool sent = false;
    for (GstElement* appsrc : appsrcs) {
        // Only into a playing pipeline, stamped with its running time now: a
        // frame queued while it pauses would carry a time from before the
        // pause and hold its sinks back by the length of the pause.
        GstState state = GST_STATE_NULL;
        if (gst_element_get_state(appsrc, &state, nullptr, 0) == GST_STATE_CHANGE_FAILURE || state != GST_STATE_PLAYING)
            continue;
        GstClock* clock = gst_element_get_clock(appsrc);
        if (!clock)
            continue;
        const GstClockTime now = gst_clock_get_time(clock), base = gst_element_get_base_time(appsrc);
        gst_object_unref(clock);
        if (now < base)
            continue;
        GstBuffer* buffer = gst_buffer_copy(pixels); // metadata only: the pixels are shared
        GST_BUFFER_PTS(buffer) = now - base;
        GST_BUFFER_DURATION(buffer) = GST_SECOND / _option.rate;
        sent = gst_app_src_push_buffer(GST_APP_SRC(appsrc), buffer) == GST_FLOW_OK || sent;
    }
    gst_buffer_unref(pixels);
    _frames += sent;
}

} // namespace serve
