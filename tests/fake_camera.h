#ifndef FRAMEHUB_TESTS_FAKE_CAMERA_H
#define FRAMEHUB_TESTS_FAKE_CAMERA_H

#include "camera/camera.h"

#include <lumo/os.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// A camera whose device hooks record their calls and fail on demand, and
// whose frames and conversions write recognisable bytes: a grab fills the raw
// block with the grab number, a conversion with that number plus 100.
class FakeCamera : public Kelmo::FrameHub::Camera {
public:
    typedef Kelmo::FrameHub::Resolution Resolution;
    typedef Kelmo::FrameHub::ColorSpace ColorSpace;
    typedef Kelmo::FrameHub::ImageBuffer ImageBuffer;
    typedef Kelmo::FrameHub::CameraPreferences CameraPreferences;

    FakeCamera()
        : Camera("FakeModel", "fake")
    {
        setNativelySupportedResolutions({ { 160, 120 }, { 320, 240 }, { 640, 480 } });
        setNativelySupportedColorSpaces({ Kelmo::FrameHub::COLORSPACE_YUV_422, Kelmo::FrameHub::COLORSPACE_Y_8,
            Kelmo::FrameHub::COLORSPACE_RGB_888 });
        setNativelySupportedFrameRates({ 5, 15, 30 });
    }

    std::vector<std::string> takeCalls()
    {
        std::lock_guard<std::mutex> lock(_callsMutex);
        std::vector<std::string> out;
        out.swap(_calls);
        return out;
    }
    int count(const std::string& hook)
    {
        std::lock_guard<std::mutex> lock(_callsMutex);
        int n = 0;
        for (const auto& c : _calls)
            n += c == hook;
        return n;
    }
    void fail(const std::string& hook) { _failing.insert(hook); }
    void heal() { _failing.clear(); }

    // Protected parts the tests drive directly.
    using Camera::_cleanImageBuffers;
    using Camera::_decreaseBufferNumber;
    using Camera::_getDirectRawImageBuffer;
    using Camera::_update;
    const BufferRing& raw() const { return _rawBuffers; }
    const BufferRing& converted() const { return _buffers; }
    size_t preferenceCount() const { return _preferences.size(); }
    // No buffer of either ring still holds a count.
    bool unlocked() const
    {
        for (const BufferRing* ring : { &_rawBuffers, &_buffers })
            for (const auto& b : *ring)
                if (b->lockCount != 0)
                    return false;
        return true;
    }
    std::vector<boost::shared_ptr<CameraPreferences>> preferencesInSetOrder() const
    {
        return std::vector<boost::shared_ptr<CameraPreferences>>(_preferences.begin(), _preferences.end());
    }

    std::vector<int> hardwareValues; // values passed to _setHardwareParameter

protected:
    bool hook(const std::string& name)
    {
        std::lock_guard<std::mutex> lock(_callsMutex);
        _calls.push_back(name);
        return _failing.count(name) == 0;
    }

    bool _openDevice() override { return hook("openDevice"); }
    bool _initDevice() override { return hook("initDevice"); }
    bool _resetDevice() override { return hook("resetDevice"); }
    bool _releaseDevice() override { return hook("releaseDevice"); }
    bool _closeDevice() override { return hook("closeDevice"); }
    bool _startStreaming() override { return hook("startStreaming"); }
    bool _stopStreaming() override { return hook("stopStreaming"); }
    bool _setResolution(const Resolution& r) override
    {
        if (!hook("setResolution " + std::to_string(r.width) + "x" + std::to_string(r.height)))
            return false;
        _currentPreferences.setResolution(r);
        return true;
    }
    bool _setColorSpace(const ColorSpace&) override { return hook("setColorSpace"); }
    bool _setFrameRate(int rate) override
    {
        if (!hook("setFrameRate " + std::to_string(rate)))
            return false;
        _currentPreferences.setRefreshRate(rate);
        return true;
    }
    bool _setHardwareParameter(const Kelmo::FrameHub::Parameter&, int value) override
    {
        hardwareValues.push_back(value);
        return hook("setHardwareParameter");
    }
    bool _getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer) override
    {
        if (!hook("grab"))
            return false;
        const int frame = ++_frames;
        buffer->setResolution(getResolution());
        buffer->setColorSpace(Kelmo::FrameHub::COLORSPACE_YUV_422);
        lumo::os::timeval now;
        lumo::os::gettimeofday(&now);
        buffer->setTimeStamp(now.tv_sec * 1000000 + now.tv_usec);
        std::memset(buffer->getData(), frame & 0xff, buffer->getSize());
        return true;
    }
    bool _convertImage(const CameraPreferences& p, boost::shared_ptr<ImageBuffer> source,
        boost::shared_ptr<ImageBuffer> target) override
    {
        if (!hook("convert"))
            return false;
        target->setResolution(p.getResolution());
        target->setColorSpace(p.getColorSpace());
        target->setTimeStamp(source->getTimeStamp());
        std::memset(target->getData(), (source->getData()[0] + 100) & 0xff, target->getSize());
        return true;
    }

private:
    std::mutex _callsMutex;
    std::vector<std::string> _calls;
    std::set<std::string> _failing;
    std::atomic<int> _frames { 0 };
};

// A clock the test moves by hand, in microseconds.
// Drives the wall clock and the monotonic clock together; stepWallMs moves
// the wall clock alone, as a time daemon does.
class ManualClock {
public:
    explicit ManualClock(int64_t start = 1000000000000LL)
        : _now(start)
        , _wallOffset(0)
    {
        lumo::os::setClock([this](lumo::os::timeval* tv) { split(_now.load() + _wallOffset.load(), tv); });
        lumo::os::setMonotonicClock([this](lumo::os::timeval* tv) { split(_now.load(), tv); });
    }
    ~ManualClock()
    {
        lumo::os::setClock(std::function<void(lumo::os::timeval*)>());
        lumo::os::setMonotonicClock(std::function<void(lumo::os::timeval*)>());
    }
    void advanceMs(int64_t ms) { _now += ms * 1000; }
    void advanceUs(int64_t us) { _now += us; }
    void stepWallMs(int64_t ms) { _wallOffset += ms * 1000; }
    int64_t wallUs() const { return _now.load() + _wallOffset.load(); }

private:
    static void split(int64_t t, lumo::os::timeval* tv)
    {
        tv->tv_sec = t / 1000000;
        tv->tv_usec = t % 1000000;
    }

    std::atomic<int64_t> _now;
    std::atomic<int64_t> _wallOffset;
};

#endif
