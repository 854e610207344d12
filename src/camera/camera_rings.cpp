// Camera: the raw and converted buffer rings, freshness and hand-out.
#include "camera/camera.h"

#include "types/framehub_log.h"
#include "types/locks.h"

#include <lumo/os.h>

#include <boost/make_shared.hpp>
#include <boost/thread/locks.hpp>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camera")

namespace {

// Every access to lockCount but the release runs under the exclusive lock.
inline void pin(ImageBuffer& buffer) { ++buffer.lockCount; }
inline void unpin(ImageBuffer& buffer) { --buffer.lockCount; }

// Newest buffer of the ring that matches; every visited buffer is pinned for
// the moment of its test, the result keeps its pin.
template <typename Matches>
boost::shared_ptr<ImageBuffer> lockNewest(const std::set<boost::shared_ptr<ImageBuffer>>& ring, Matches matches)
{
    boost::shared_ptr<ImageBuffer> result;
    for (const auto& buffer : ring) {
        pin(*buffer);
        const bool newer
            = matches(*buffer) && (!result || buffer->getMonotonicTimeStamp() > result->getMonotonicTimeStamp());
        if (!newer) {
            unpin(*buffer);
            continue;
        }
        if (result)
            unpin(*result);
        result = buffer;
    }
    return result;
}

// The first free buffer that fits, pinned for a writer; the ring grows by
// one when none does, and the new buffer is taken on the second pass.
template <typename Fits, typename Grow>
boost::shared_ptr<ImageBuffer> lockFirstFree(
    const std::set<boost::shared_ptr<ImageBuffer>>& ring, Fits fits, Grow grow, const char* function)
{
    for (int pass = 0; pass < 2; ++pass) {
        for (const auto& buffer : ring) {
            if (buffer->lockCount == 0 && fits(*buffer)) {
                buffer->lockCount = 1;
                return buffer;
            }
        }
        if (pass == 0 && !grow())
            break;
    }
    FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << "No buffer available for editing.";
    return boost::shared_ptr<ImageBuffer>();
}

int64_t microseconds(const lumo::os::timeval& tv) { return tv.tv_sec * 1000000 + tv.tv_usec; }

lumo::os::timeval monotonicNow()
{
    lumo::os::timeval now;
    lumo::os::getmonotonictime(&now);
    return now;
}

// Too old when older than one frame period of the asking subscriber, all in
// milliseconds truncated towards zero; the bound itself is still fresh.
// Judged on the monotonic clock, read before the scan: a stepped wall clock
// must not freeze the images (stepped back) nor starve them (stepped
// forward). A frame never stamped is never fresh.
boost::shared_ptr<ImageBuffer> keepIfFresh(
    boost::shared_ptr<ImageBuffer> buffer, const lumo::os::timeval& now, int refreshRate)
{
    if (!buffer)
        return buffer;
    // Rates below 1 never get past negotiation; should one arrive, it must
    // not divide by zero.
    const int64_t period = refreshRate > 0 ? 1000 / static_cast<int64_t>(refreshRate) : 0;
    const int64_t timeStamp = buffer->getMonotonicTimeStamp();
    const int64_t stamp = (timeStamp / 1000000) * 1000 + (timeStamp % 1000000) / 1000;
    const int64_t nowMs = now.tv_sec * 1000 + now.tv_usec / 1000;
    if (timeStamp < 0 || stamp + period - nowMs < 0) {
        unpin(*buffer);
        return boost::shared_ptr<ImageBuffer>();
    }
    return buffer;
}

// A back-end that stamps its frames on the wall clock alone: the frame's age
// on that clock, taken now, is carried over to the monotonic clock; a frame
// stamped in the future (the wall clock stepped back since) counts as taken
// now. Back-ends that know when a frame was taken stamp both clocks.
void stampMonotonicFromAge(ImageBuffer& buffer)
{
    lumo::os::timeval wall;
    lumo::os::timeval monotonic;
    lumo::os::gettimeofday(&wall);
    lumo::os::getmonotonictime(&monotonic);
    const int64_t age = microseconds(wall) - buffer.getTimeStamp();
    buffer.setMonotonicTimeStamp(microseconds(monotonic) - (age > 0 ? age : 0));
}

// A converted image is as old as its source.
void stampLikeSource(const ImageBuffer& source, ImageBuffer& target)
{
    target.setMonotonicTimeStamp(source.getMonotonicTimeStamp());
}

} // namespace

void Camera::_stampTakenNow(ImageBuffer& frame)
{
    lumo::os::timeval wall;
    lumo::os::timeval monotonic;
    lumo::os::gettimeofday(&wall);
    lumo::os::getmonotonictime(&monotonic);
    frame.setTimeStamp(microseconds(wall));
    frame.setMonotonicTimeStamp(microseconds(monotonic));
}

// ---- Public ----------------------------------------------------------------

boost::shared_ptr<ImageBuffer> Camera::getImageBuffer(const CameraPreferences& preferences)
{
    ExclusiveLock lock(_mutex);
    return _getImageBuffer(preferences);
}

boost::shared_ptr<ImageBuffer> Camera::getDirectRawImageBuffer(const CameraPreferences& preferences)
{
    ExclusiveLock lock(_mutex);
    boost::shared_ptr<CameraPreferences> raw = buildDefaultPreferences();
    raw->setRefreshRate(preferences.getRefreshRate());
    return _getDirectRawImageBuffer(*raw);
}

boost::shared_ptr<ImageBuffer> Camera::getDirectRawExtraColorSpaceImageBuffer(const CameraPreferences& preferences)
{
    ExclusiveLock lock(_mutex);
    boost::shared_ptr<CameraPreferences> raw = buildDefaultPreferences();
    raw->setRefreshRate(preferences.getRefreshRate());
    return _getDirectRawExtraColorSpaceImageBuffer(*raw);
}

bool Camera::releaseImageBuffer(boost::shared_ptr<ImageBuffer> buffer)
{
    SharedLock lock(_mutex);
    return _releaseImageBuffer(buffer);
}

// ---- Fetching ----------------------------------------------------------------

boost::shared_ptr<ImageBuffer> Camera::_getImageBuffer(const CameraPreferences& preferences)
{
    boost::shared_ptr<ImageBuffer> converted = _getTheNewestValidBuffer(preferences);
    if (converted)
        return converted;

    // The answer does not change the scan: a raw frame is only taken as it
    // stands when its colour space is the requested one.
    isExtraColorSpace(preferences.getColorSpace());
    boost::shared_ptr<ImageBuffer> raw = _getTheNewestValidRawBuffer(preferences);
    if (!raw)
        return _getConvertedRawBuffer(preferences);

    boost::shared_ptr<ImageBuffer> target = _lockOldestBufferForEditing(preferences);
    if (!target) {
        unpin(*raw);
        return target;
    }
    if (_convertImage(preferences, raw, target)) {
        stampLikeSource(*raw, *target);
        unpin(*raw);
        return target;
    }
    unpin(*raw);
    unpin(*target);
    return boost::shared_ptr<ImageBuffer>();
}

boost::shared_ptr<ImageBuffer> Camera::_getConvertedRawBuffer(const CameraPreferences& preferences)
{
    boost::shared_ptr<ImageBuffer> source = isExtraColorSpace(preferences.getColorSpace())
        ? _getDirectRawExtraColorSpaceImageBuffer(preferences)
        : _getDirectRawImageBuffer(preferences);
    if (!source)
        return source;
    boost::shared_ptr<ImageBuffer> target = _lockOldestBufferForEditing(preferences);
    if (!target)
        return target; // the source stays pinned on this path
    if (_convertImage(preferences, source, target)) {
        stampLikeSource(*source, *target);
        _releaseImageBuffer(source);
        return target;
    }
    unpin(*target);
    _releaseImageBuffer(source);
    return boost::shared_ptr<ImageBuffer>();
}

boost::shared_ptr<ImageBuffer> Camera::_getDirectRawImageBuffer(const CameraPreferences& preferences)
{
    return _grabRawBuffer(preferences, _rawFailureCount, false, __func__);
}

boost::shared_ptr<ImageBuffer> Camera::_getDirectRawExtraColorSpaceImageBuffer(const CameraPreferences& preferences)
{
    return _grabRawBuffer(preferences, _extraRawFailureCount, true, __func__);
}

// A fresh raw frame if there is one; otherwise count the miss (the fifth in
// a row resets the camera), start the camera and grab into a free buffer.
boost::shared_ptr<ImageBuffer> Camera::_grabRawBuffer(
    const CameraPreferences& preferences, int32_t& failures, bool extra, const char* function)
{
    boost::shared_ptr<ImageBuffer> fresh = _getTheNewestValidRawBuffer(preferences);
    if (fresh)
        return fresh;

    if (++failures > 4) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << "Can't get image from " << _name << ". Restart the camera.";
        _reset();
        failures = 0;
    }
    if (!_start()) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << "Can't start " << _name << " to get a new image.";
        return boost::shared_ptr<ImageBuffer>();
    }
    boost::shared_ptr<ImageBuffer> buffer = _lockOldestRawBufferForEditing(preferences);
    if (!buffer)
        return buffer;
    if (extra)
        buffer->setColorSpace(preferences.getColorSpace());
    buffer->setFielOfView(getFieldOfView());
    buffer->setMonotonicTimeStamp(-1); // the back-end may stamp it
    if (!(extra ? _getExtraColorSpaceBuffer(preferences, buffer) : _getDirectRawImage(buffer))) {
        unpin(*buffer);
        return boost::shared_ptr<ImageBuffer>();
    }
    if (buffer->getMonotonicTimeStamp() < 0)
        stampMonotonicFromAge(*buffer);
    failures = 0;
    return buffer;
}

bool Camera::_getExtraColorSpaceBuffer(const CameraPreferences&, boost::shared_ptr<ImageBuffer>) { return false; }

// ---- Reading -----------------------------------------------------------------

boost::shared_ptr<ImageBuffer> Camera::_getTheNewestValidBuffer(const CameraPreferences& preferences)
{
    const lumo::os::timeval now = monotonicNow();
    return keepIfFresh(_lockTheNewestBufferForReading(preferences), now, preferences.getRefreshRate());
}

boost::shared_ptr<ImageBuffer> Camera::_getTheNewestValidRawBuffer(const CameraPreferences& preferences)
{
    const lumo::os::timeval now = monotonicNow();
    return keepIfFresh(_lockTheNewestRawBufferForReading(preferences), now, preferences.getRefreshRate());
}

boost::shared_ptr<ImageBuffer> Camera::_lockTheNewestBufferForReading(const CameraPreferences& preferences)
{
    const Resolution resolution = preferences.getResolution();
    const ColorSpace colorSpace = preferences.getColorSpace();
    return lockNewest(_buffers,
        [&](const ImageBuffer& b) { return b.getResolution() == resolution && b.getColorSpace() == colorSpace; });
}

boost::shared_ptr<ImageBuffer> Camera::_lockTheNewestRawBufferForReading(const CameraPreferences& preferences)
{
    const ColorSpace colorSpace = preferences.getColorSpace();
    return lockNewest(_rawBuffers, [&](const ImageBuffer& b) { return b.getColorSpace() == colorSpace; });
}

// ---- Writing -----------------------------------------------------------------

// "Oldest" is the first free buffer in set order; no time stamp is compared.
boost::shared_ptr<ImageBuffer> Camera::_lockOldestBufferForEditing(const CameraPreferences& preferences)
{
    return lockFirstFree(
        _buffers, [&](const ImageBuffer& b) { return b.isPreferencesValid(preferences); },
        [&] { return _increaseBufferNumber(preferences); }, __func__);
}

// Any free raw buffer fits: the next frame sets its format.
boost::shared_ptr<ImageBuffer> Camera::_lockOldestRawBufferForEditing(const CameraPreferences& preferences)
{
    return lockFirstFree(
        _rawBuffers, [](const ImageBuffer&) { return true; }, [&] { return _increaseRawBufferNumber(preferences); },
        __func__);
}

// ---- Growing and shrinking ---------------------------------------------------

bool Camera::_increaseBufferNumber(const CameraPreferences& preferences)
{
    boost::shared_ptr<ImageBuffer> buffer
        = boost::make_shared<ImageBuffer>(getName(), preferences.getResolution(), preferences.getColorSpace(), true);
    // Allocate now rather than at the first frame.
    if (!buffer || !buffer->getData()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": Impossible to add a buffer";
        return false;
    }
    buffer->setFielOfView(getFieldOfView());
    _buffers.insert(buffer);
    return true;
}

bool Camera::_increaseRawBufferNumber(const CameraPreferences&)
{
    boost::shared_ptr<ImageBuffer> buffer = boost::make_shared<ImageBuffer>(
        getName(), *_nativelySupportedResolutions.rbegin(), *_nativelySupportedColorSpaces.rbegin(), true);
    if (!buffer || !buffer->getData()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": Impossible to add a new raw buffer";
        return false;
    }
    buffer->setFielOfView(getFieldOfView());
    _rawBuffers.insert(buffer);
    return true;
}

bool Camera::_decreaseBufferNumber(const CameraPreferences& preferences)
{
    for (BufferRing::iterator it = _buffers.begin(); it != _buffers.end(); ++it) {
        if ((*it)->isPreferencesValid(preferences) && (*it)->lockCount == 0) {
            _buffers.erase(it);
            break;
        }
    }
    return true;
}

bool Camera::_decreaseRawBufferNumber()
{
    for (BufferRing::iterator it = _rawBuffers.begin(); it != _rawBuffers.end(); ++it) {
        if ((*it)->lockCount == 0) {
            _rawBuffers.erase(it);
            break;
        }
    }
    return true;
}

bool Camera::_decreaseAllBufferNumber(const CameraPreferences& preferences)
{
    const bool raw = _decreaseRawBufferNumber();
    const bool converted = _decreaseBufferNumber(preferences);
    return raw && converted;
}

// ---- Releasing -----------------------------------------------------------------

bool Camera::_releaseImageBuffer(boost::shared_ptr<ImageBuffer> buffer)
{
    if (!buffer)
        return false;
    if (_rawBuffers.count(buffer) == 0 && _buffers.count(buffer) == 0)
        return false;
    // Releases run side by side under the shared lock: the one decrement that
    // is not serialised by the exclusive lock must not lose a count.
    __atomic_fetch_sub(&buffer->lockCount, 1, __ATOMIC_ACQ_REL);
    return true;
}

bool Camera::_cleanImageBuffers()
{
    int visited = 0;
    for (const auto& buffer : _rawBuffers) {
        if (buffer->lockCount != 0)
            FRAMEHUB_LOG(LEVEL_WARNING) << "Internal error, a direct raw image buffer lock has not been released.";
        buffer->lockCount = 0;
        ++visited;
    }
    while (!_rawBuffers.empty())
        _decreaseRawBufferNumber();
    for (const auto& buffer : _buffers) {
        if (buffer->lockCount != 0)
            FRAMEHUB_LOG(LEVEL_WARNING) << "Internal error, an image buffer lock has not been released.";
        buffer->lockCount = 0;
        ++visited;
    }
    _buffers.clear();
    return visited == 0;
}

} // namespace FrameHub
} // namespace Kelmo
