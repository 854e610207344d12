#ifndef FRAMEHUB_TOOLS_SERVE_STREAM_H
#define FRAMEHUB_TOOLS_SERVE_STREAM_H

#include "serve_options.h"

#include <framehub/frame_hub.h>

#include <gst/gst.h>
#include <gst/video/video-info.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace serve {

typedef std::chrono::steady_clock Clock;

// Puts the demo's moving scene into the simulated cameras that some stream
// uses, at each camera's negotiated rate, on a thread of its own.
class Feeder {
public:
    Feeder(Kelmo::FrameHub::FrameHub& hub, const std::vector<Kelmo::FrameHub::CameraInfo>& cameras, bool timeCode);
    ~Feeder();

    void start();
    void stop();

    // Subscribing and unsubscribing go through here: a put into a simulator
    // opens it, so a feed racing the last unsubscribe would keep the camera
    // open for nobody. Both run the call under the camera's feed lock.
    std::string subscribe(const std::string& camera, const std::function<std::string()>& call);
    bool unsubscribe(const std::string& camera, const std::function<bool()>& call);

private:
    struct Simulated {
        std::string name;
        bool depth;
        std::mutex mutex; // guards users and every put
        int users = 0;
        Clock::time_point due;
    };

    void run();
    void feed(Simulated& camera, double t);

    Kelmo::FrameHub::FrameHub& _hub;
    std::vector<std::unique_ptr<Simulated>> _cameras;
    bool _timeCode;
    Clock::time_point _origin;
    std::mutex _stopMutex;
    std::condition_variable _wake;
    bool _stop = false;
    std::thread _thread;
};

// One mounted stream: a subscriber of the hub on its own thread that, while
// a client watches, fetches at the stream's rate and pushes into the appsrc
// of the stream's pipeline. Attach and detach come from the server's
// threads; the subscriber name is touched by the stream's thread alone.
class ServedStream {
public:
    ServedStream(Kelmo::FrameHub::FrameHub& hub, Feeder& feeder, const StreamOption& option);
    ~ServedStream();

    const StreamOption& option() const { return _option; }
    // Caps of what the stream pushes: raw video at the stream's size and rate.
    std::string rawCaps() const;

    void start();
    // Joins the thread; the subscriber is unsubscribed.
    void stop();

    // The source of a client's pipeline, from its configuration to its
    // unpreparing; every fetched image goes to all of them.
    void attach(GstElement* appsrc);
    void detach(GstElement* appsrc);
    // Pipelines attached and not yet detached: the server's callbacks may
    // still reach the stream while this is above zero.
    int pipelines() const { return _pipelines; }
    void clientJoined();
    void clientLeft();

    int clients() const { return _clients; }
    uint64_t frames() const { return _frames; }

private:
    void run();
    bool _wanted(Clock::time_point now) const; // with _mutex held
    bool subscribe();
    void unsubscribe();
    void push(const std::vector<GstElement*>& appsrcs, const Kelmo::FrameHub::ImageBuffer& image);
    GstBuffer* copyIntoBuffer(const Kelmo::FrameHub::ImageBuffer& image);

    Kelmo::FrameHub::FrameHub& _hub;
    Feeder& _feeder;
    const StreamOption _option;
    const char* _format; // GStreamer's name of the pushed format
    bool _direct; // pushed as the hub hands it out, or drawn as a BGR picture
    GstVideoInfo _info;

    std::mutex _mutex; // guards what follows up to _stop
    std::condition_variable _wake;
    std::vector<GstElement*> _appsrcs; // one reference each
    Clock::time_point _attachedAt;
    bool _stop = false;

    std::atomic<int> _clients { 0 };
    std::atomic<int> _pipelines { 0 };
    std::atomic<uint64_t> _frames { 0 };
    std::string _subscriber;
    bool _warnedMismatch = false;
    bool _warnedSubscribe = false;
    std::thread _thread;
};

} // namespace serve

#endif
