#ifndef FRAMEHUB_SRC_CAMERA_CAMERA_H
#define FRAMEHUB_SRC_CAMERA_CAMERA_H

#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>
#include <framehub/image_buffer.h>

#include <lumo/log.h>

#include <boost/shared_ptr.hpp>
#include <boost/thread/shared_mutex.hpp>

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Kelmo {
namespace FrameHub {

// Abstract base of every camera back-end: device state machine, negotiation
// of the subscribers' requests, the two buffer rings, parameters and angular
// geometry, all serialised by one lock.
//
// Operations with a leading underscore run with _mutex already held and
// never take it. Public operations must not be called from them or from a
// hook: the lock is not recursive.
//
// Sources: camera.cpp (lifecycle, negotiation), camera_rings.cpp,
// camera_parameters.cpp, camera_geometry.cpp.
class Camera {
public:
    // Model first, then name.
    Camera(const std::string& model, const std::string& name);
    // Does not close the device: each most-derived back-end does.
    virtual ~Camera();

    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    virtual bool hasError() const;
    virtual const std::string& getError() const;
    virtual bool isColorSpaceValid(const ColorSpace& colorSpace) const;
    virtual bool isExtraColorSpace(const ColorSpace& colorSpace) const;

    // Lifecycle, exclusive lock.
    bool open();
    bool close();
    bool start();
    bool stop();
    bool reset();

    // Straight to the device, no check, no subscriber considered. Exclusive.
    bool setResolution(const Resolution& resolution);
    bool setColorSpace(const ColorSpace& colorSpace);
    bool setFrameRate(int frameRate);
    bool putImage(const Resolution& resolution, const ColorSpace& colorSpace, const void* data);
    // Shared lock while the camera is open, exclusive when it may open it.
    CameraPreferences getExpectedImageParameters();

    // No lock: fixed after construction, or stale reads are harmless.
    const std::string& getName() const;
    const std::string& getModel() const;
    bool isOpen() const;
    bool isStarted() const;
    Resolution getResolution() const;
    ColorSpace getColorSpace() const;
    int getFrameRate() const;
    std::pair<Resolution, Resolution> getResolutionRange() const;
    std::pair<int, int> getFrameRateRange() const;
    boost::shared_ptr<CameraPreferences> buildDefaultPreferences() const;
    void setNativelySupportedResolutions(std::set<Resolution> resolutions);
    void setNativelySupportedColorSpaces(std::set<ColorSpace> colorSpaces);
    void setNativelySupportedFrameRates(std::set<int> frameRates);

    // Negotiation. The tests and the repair take no lock; the rest is exclusive.
    bool isResolutionValid(const Resolution& resolution) const;
    bool isFrameRateValid(int frameRate) const;
    bool isValidRequest(const CameraPreferences& preferences) const;
    bool updateRequestToValidRequest(CameraPreferences& preferences) const;
    bool addPreferences(boost::shared_ptr<CameraPreferences> preferences);
    bool removePreferences(boost::shared_ptr<CameraPreferences> preferences);
    bool updateResolutionPreferences(boost::shared_ptr<CameraPreferences> preferences, const Resolution& resolution);
    bool updateColorSpacePreferences(boost::shared_ptr<CameraPreferences> preferences, const ColorSpace& colorSpace);
    bool updateFrameRatePreferences(boost::shared_ptr<CameraPreferences> preferences, int frameRate);

    // Buffer rings. A returned buffer carries one lock count for the caller,
    // who owes exactly one releaseImageBuffer. Release runs under the shared lock.
    boost::shared_ptr<ImageBuffer> getImageBuffer(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> getDirectRawImageBuffer(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> getDirectRawExtraColorSpaceImageBuffer(const CameraPreferences& preferences);
    bool releaseImageBuffer(boost::shared_ptr<ImageBuffer> buffer);

    // Parameters, exclusive lock (also the reads).
    int getParameter(const Parameter& parameter) const;
    ParameterInfo getParameterInfo(const Parameter& parameter) const;
    bool setParameter(const Parameter& parameter, int value);
    bool resetParameter(const Parameter& parameter);
    bool resetParameters();
    std::pair<bool, bool> getDefaultFlip() const;
    bool setDefaultFlip(bool horizontal, bool vertical);

    // Angular geometry, no lock.
    FieldOfView getFieldOfView() const;
    bool setFieldOfView(const FieldOfView& fieldOfView);
    std::vector<float> getImageSizeFromAngularSize(const std::vector<float>& angularSize) const;
    std::vector<float> getImagePositionFromAngularPosition(const std::vector<float>& angularPosition) const;
    std::vector<float> getAngularPositionFromImagePosition(const std::vector<float>& imagePosition) const;
    std::vector<float> getAngularSizeFromImageSize(const std::vector<float>& imageSize) const;
    std::vector<float> getImageInfoFromAngularInfo(const std::vector<float>& angularInfo) const;
    std::vector<float> getImageInfoFromAngularInfoWithResolution(
        const std::vector<float>& angularInfo, const Resolution& resolution) const;

protected:
    // Device hooks; the base versions succeed and do nothing.
    virtual bool _openDevice();
    virtual bool _initDevice();
    virtual bool _resetDevice();
    virtual bool _releaseDevice();
    virtual bool _closeDevice();
    virtual bool _startStreaming();
    virtual bool _stopStreaming();
    // Must bring the device and _currentPreferences to the new value.
    virtual bool _setResolution(const Resolution& resolution) = 0;
    virtual bool _setColorSpace(const ColorSpace& colorSpace) = 0;
    virtual bool _setFrameRate(int frameRate) = 0;
    virtual void _initHardwareParameterMap();
    virtual int _getHardwareParameter(const Parameter& parameter) const;
    virtual ParameterInfo _getHardwareParameterInfo(const Parameter& parameter) const;
    virtual bool _setHardwareParameter(const Parameter& parameter, int value);
    virtual bool _resetHardwareParameter(const Parameter& parameter);
    virtual boost::shared_ptr<ImageBuffer> _getDirectRawExtraColorSpaceImageBuffer(
        const CameraPreferences& preferences);
    // Fills the raw buffer with a new frame: pixels, resolution, colour space, time stamp.
    virtual bool _getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer) = 0;
    virtual bool _getExtraColorSpaceBuffer(const CameraPreferences& preferences, boost::shared_ptr<ImageBuffer> buffer);
    // Writes the image in the format of preferences into the second buffer.
    virtual bool _convertImage(const CameraPreferences& preferences, boost::shared_ptr<ImageBuffer> imageBuffer,
        boost::shared_ptr<ImageBuffer> convertedBuffer)
        = 0;
    virtual bool _putImage(const Resolution& resolution, const ColorSpace& colorSpace, const void* data);
    virtual CameraPreferences _getExpectedImageParameters();

    // Stamps a frame as taken now, on the wall clock (its public time stamp)
    // and on the monotonic clock that freshness is judged by.
    static void _stampTakenNow(ImageBuffer& frame);

    // The head every pipeline's _convertImage shares: each buffer must hold a
    // block (else the given message, in the pipeline's category), then the
    // destination takes the requested format and the source's time stamp and
    // field of view, before anything else can fail.
    static bool _stampConvertedBuffer(const CameraPreferences& preferences,
        const boost::shared_ptr<ImageBuffer>& source, const boost::shared_ptr<ImageBuffer>& destination,
        lumo::log::CategoryType category, const char* noSource, const char* noDestination);

    // State machine.
    bool _open();
    bool _close();
    bool _start();
    bool _stop();
    bool _reset();
    // Drives the device to the largest requested size and the fastest rate.
    bool _update();

    // Rings.
    boost::shared_ptr<ImageBuffer> _getImageBuffer(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> _getConvertedRawBuffer(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> _getDirectRawImageBuffer(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> _getTheNewestValidBuffer(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> _getTheNewestValidRawBuffer(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> _lockTheNewestBufferForReading(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> _lockTheNewestRawBufferForReading(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> _lockOldestBufferForEditing(const CameraPreferences& preferences);
    boost::shared_ptr<ImageBuffer> _lockOldestRawBufferForEditing(const CameraPreferences& preferences);
    bool _increaseBufferNumber(const CameraPreferences& preferences);
    bool _increaseRawBufferNumber(const CameraPreferences& preferences);
    bool _decreaseBufferNumber(const CameraPreferences& preferences);
    bool _decreaseRawBufferNumber();
    bool _decreaseAllBufferNumber(const CameraPreferences& preferences);
    bool _releaseImageBuffer(boost::shared_ptr<ImageBuffer> buffer);
    bool _cleanImageBuffers();

    // Software parameters.
    void _initSoftwareParameterMap();
    int _getSoftwareParameter(const Parameter& parameter) const;
    ParameterInfo _getSoftwareParameterInfo(const Parameter& parameter) const;
    bool _setSoftwareParameter(const Parameter& parameter, int value);
    bool _resetSoftwareParameter(const Parameter& parameter);

    typedef std::set<boost::shared_ptr<ImageBuffer>> BufferRing;

    std::string _name;
    std::string _model;
    FieldOfView _fieldOfView;
    std::pair<bool, bool> _defaultFlip;
    std::set<Resolution> _nativelySupportedResolutions;
    std::set<ColorSpace> _nativelySupportedColorSpaces;
    std::set<int> _nativelySupportedFrameRates;
    std::map<Parameter, int> _softwareParameters;
    std::map<Parameter, int> _hardwareParameters;
    CameraPreferences _currentPreferences;
    std::set<boost::shared_ptr<CameraPreferences>> _preferences;
    // Read without the lock by isOpen/isStarted, written under it.
    std::atomic<bool> _isOpen;
    std::atomic<bool> _isStarted;
    BufferRing _rawBuffers;
    BufferRing _buffers;
    bool _hasError;
    std::string _error;
    int32_t _rawFailureCount;
    int32_t _extraRawFailureCount;
    mutable boost::shared_mutex _mutex;

private:
    void _resetCurrentPreferencesToDefaults();
    // Both raw fetches: the main stream, or the extra colour space.
    boost::shared_ptr<ImageBuffer> _grabRawBuffer(
        const CameraPreferences& preferences, int32_t& failures, bool extra, const char* function);
};

} // namespace FrameHub
} // namespace Kelmo

#endif
