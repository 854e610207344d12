#ifndef FRAMEHUB_SRC_FRONTEND_FRAME_HUB_P_H
#define FRAMEHUB_SRC_FRONTEND_FRAME_HUB_P_H

#include <framehub/camera_builder.h>
#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>
#include <framehub/image_buffer.h>

#include <boost/shared_ptr.hpp>
#include <boost/thread/shared_mutex.hpp>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Kelmo {
namespace FrameHub {

class Camera;
class Subscriber;

// The spine behind the facade: the subscriber and camera registries.
// Sources: frame_hub_p.cpp (registry, guards, subscribing),
// frame_hub_p_images.cpp, frame_hub_p_retarget.cpp, frame_hub_p_cameras.cpp.
//
// Locking. One lock orders everything: _subscribersMutex. The camera
// registry is copy-on-write: readers load a pointer to an immutable map
// (a "snapshot") and never wait for a writer.
//
// | Operation                                            | _subscribersMutex          | cameras          |
// |------------------------------------------------------|----------------------------|------------------|
// | subscribeCamera, subscribeCameras                    | upgrade; unique for insert | snapshot         |
// | unsubscribe                                          | upgrade; unique for erase  | snapshot         |
// | setDefaultActiveCamera                               | unique                     | snapshot         |
// | mono- and multi-stream fetches, releases, set*, get* | shared                     | snapshot         |
// | getSubscribers                                       | shared                     | none             |
// | camera pass-through, angular conversions, putImage,  | none                       | snapshot         |
// |   getExpectedImageParameters, getCameraIndexes       |                            |                  |
// | addCamera                                            | none                       | _registrationMutex, |
// |                                                      |                            | then swap        |
// | getDefaultActiveCamera                               | none                       | none             |
//
// A camera's own lock is always taken last, and a camera never calls back
// into the hub. _camerasMutex and _defaultActiveCameraMutex are leaves: held
// only to publish a new map or to copy a string. _registrationMutex is taken by
// addCamera alone, with no hub lock held; under it only the new camera's lock
// (unpublished: nobody else can wait on it) and leaves. So a thread that waits
// holds at most _subscribersMutex and waits for a camera lock or a leaf, whose
// holders never wait for _subscribersMutex: no cycle.
//
// The alias "Default" is resolved under _subscribersMutex, which
// setDefaultActiveCamera holds uniquely, so a request is always filed on the
// camera the alias names at that moment. addCamera writes the default only
// from empty to its first camera, when nobody can follow the alias yet.
class FrameHubPrivate {
public:
    typedef boost::shared_ptr<ImageBuffer> Buffer;

    FrameHubPrivate();
    virtual ~FrameHubPrivate();

    FrameHubPrivate(const FrameHubPrivate&) = delete;
    FrameHubPrivate& operator=(const FrameHubPrivate&) = delete;

    // Subscribing.
    virtual std::string subscribeCamera(const std::string& name, const std::string& cameraName,
        const Resolution& resolution, const ColorSpace& colorSpace, int frameRate);
    virtual std::string subscribeCameras(const std::string& name, const std::vector<std::string>& cameraNames,
        const std::vector<Resolution>& resolutions, const std::vector<ColorSpace>& colorSpaces, int frameRate);
    bool unsubscribe(const std::string& name);
    std::vector<std::string> getSubscribers() const;

    // Retargeting.
    virtual bool setDefaultActiveCamera(const std::string& cameraName);
    std::string getDefaultActiveCamera() const;

    // Camera pass-through, pattern of lock, alias and guard.
    virtual bool openCamera(const std::string& cameraName);
    virtual bool closeCamera(const std::string& cameraName);
    virtual bool startCamera(const std::string& cameraName);
    virtual bool stopCamera(const std::string& cameraName);

    virtual bool setFrameRate(const std::string& name, int frameRate);
    virtual bool setActiveCamera(const std::string& name, const std::string& cameraName);
    virtual bool setResolution(const std::string& name, const Resolution& resolution);
    virtual bool setColorSpace(const std::string& name, const ColorSpace& colorSpace);

    // Images.
    virtual Buffer getDirectRawImage(const std::string& name);
    virtual bool releaseDirectRawImage(const std::string& name);
    virtual Buffer getImage(const std::string& name);
    virtual std::vector<bool> setActiveCameras(const std::string& name, const std::vector<std::string>& cameraNames);

    bool releaseImage(const std::string& name);
    std::vector<Buffer> getImages(const std::string& name);
    std::vector<bool> releaseImages(const std::string& name);
    std::vector<Buffer> getDirectRawImages(const std::string& name);
    std::vector<bool> releaseDirectRawImages(const std::string& name);

    std::string getActiveCamera(const std::string& name) const;
    Resolution getResolution(const std::string& name) const;
    ColorSpace getColorSpace(const std::string& name) const;
    int getFrameRate(const std::string& name) const;
    std::vector<std::string> getActiveCameras(const std::string& name) const;
    std::vector<Resolution> getResolutions(const std::string& name) const;
    std::vector<bool> setResolutions(const std::string& name, const std::vector<Resolution>& resolutions);
    std::vector<ColorSpace> getColorSpaces(const std::string& name) const;
    std::vector<bool> setColorSpaces(const std::string& name, const std::vector<ColorSpace>& colorSpaces);

    bool isCameraOpen(const std::string& cameraName) const;
    bool isCameraStarted(const std::string& cameraName) const;
    bool resetCamera(const std::string& cameraName) const;
    std::string getCameraModel(const std::string& cameraName) const;
    std::string getCameraName(const std::string& cameraName) const;
    int getCameraFrameRate(const std::string& cameraName) const;
    std::pair<int, int> getCameraFrameRateRange(const std::string& cameraName) const;
    Resolution getCameraResolution(const std::string& cameraName) const;
    std::pair<Resolution, Resolution> getCameraResolutionRange(const std::string& cameraName) const;
    ColorSpace getCameraColorSpace(const std::string& cameraName) const;
    FieldOfView getCameraFieldOfView(const std::string& cameraName) const;
    int getCameraParameter(const std::string& cameraName, const Parameter& parameter) const;
    ParameterInfo getCameraParameterInfo(const std::string& cameraName, const Parameter& parameter) const;
    bool setCameraParameter(const std::string& cameraName, const Parameter& parameter, int value);
    bool setCameraParameterToDefault(const std::string& cameraName, const Parameter& parameter);
    bool setAllCameraParametersToDefault(const std::string& cameraName);

    // Angular conversions: no hub lock, a registry snapshot.
    std::vector<float> getAngularPositionFromImagePosition(
        const std::string& cameraName, const std::vector<float>& imagePosition) const;
    std::vector<float> getImagePositionFromAngularPosition(
        const std::string& cameraName, const std::vector<float>& angularPosition) const;
    std::vector<float> getAngularSizeFromImageSize(
        const std::string& cameraName, const std::vector<float>& imageSize) const;
    std::vector<float> getImageSizeFromAngularSize(
        const std::string& cameraName, const std::vector<float>& angularSize) const;
    std::vector<float> getImageInfoFromAngularInfo(
        const std::string& cameraName, const std::vector<float>& angularInfo) const;
    std::vector<float> getImageInfoFromAngularInfoWithResolution(
        const std::string& cameraName, const std::vector<float>& angularInfo, const Resolution& resolution) const;

    // Feeding a simulated camera: the name as it stands, no alias.
    bool putImage(
        const std::string& cameraName, const Resolution& resolution, const ColorSpace& colorSpace, const void* data);
    CameraPreferences getExpectedImageParameters(const std::string& cameraName) const;

    std::vector<std::string> getCameraIndexes() const;

    // Registration.
    bool addCamera(const CameraInfo& cameraInfo);

private:
    typedef boost::shared_ptr<Subscriber> SubscriberPtr;
    typedef boost::shared_ptr<Camera> CameraPtr;
    typedef std::map<std::string, CameraPtr> CameraMap;

    // The helpers run with the right hub lock already held and take no hub lock.
    std::string _getRealCameraName(const std::string& cameraName) const;
    // The same for a mono-stream subscriber's camera, without building a
    // string: the listed name itself, or the alias's target in the record.
    const std::string& _realCameraNameOf(Subscriber& subscriber) const;
    // _defaultActiveCamera is read outside _subscribersMutex (pass-through,
    // getDefaultActiveCamera), so it has a small lock of its own.
    void _setDefaultActiveCamera(const std::string& cameraName);
    bool _checkIsSubscriberValid(const std::string& name) const;
    // The same guards on a record found once, for the per-frame path; they
    // log exactly as the guards above. The pointer is valid under the lock.
    const SubscriberPtr* _findSubscriber(const std::string& name) const;
    const SubscriberPtr* _monoSubscriber(const std::string& name) const;
    const SubscriberPtr* _multiSubscriber(const std::string& name) const;
    bool _isMonostream(Subscriber& subscriber) const;
    bool _isMultistream(Subscriber& subscriber) const;
    bool _isNotProcessing(Subscriber& subscriber) const;
    // The three below assume _checkIsSubscriberValid passed under the same lock.
    bool _checkSubscriberIsMonostream(const std::string& name) const;
    bool _checkSubscriberIsMultistream(const std::string& name) const;
    bool _checkSubscriberIsNotProcessing(const std::string& name) const;
    bool _checkIsCameraIdValid(const std::string& cameraName) const;
    // The guard and the lookup in one: null, with the guard's record, when
    // the name is not registered.
    Camera* _findCamera(const std::string& cameraName) const;
    // The registry as it stands; it only grows, so a name found once stays,
    // and a camera lives as long as the hub.
    const CameraMap& _cameraRegistry() const;
    // Publishes a camera under its name; the first one becomes the default.
    bool _publishCamera(const CameraPtr& camera);
    std::string _findAvailableSubscriberName(const std::string& name);

    // Shared by both subscribe paths: the camera's test, then its repair.
    bool _validateRequest(
        const std::string& name, Camera* camera, CameraPreferences& request, const char* function) const;
    // The camera behind a name, null when it is not registered. No record.
    Camera* _camera(const std::string& cameraName) const;
    // The same through the subscriber's memo, for the per-frame path.
    Camera* _cameraOf(Subscriber& subscriber, const std::string& cameraName) const;

    Buffer _getImage(const SubscriberPtr& subscriber);
    bool _releaseImage(const SubscriberPtr& subscriber);
    Buffer _getDirectRawImage(const SubscriberPtr& subscriber);
    Buffer _getMonoImage(const SubscriberPtr& subscriber, bool raw, const char* worker, const char* logPrefix);
    bool _releaseDirectRawImage(const SubscriberPtr& subscriber);
    std::vector<Buffer> _getImages(const SubscriberPtr& subscriber);
    std::vector<bool> _releaseImages(const SubscriberPtr& subscriber);
    std::vector<Buffer> _getDirectRawImages(const SubscriberPtr& subscriber);
    std::vector<bool> _releaseDirectRawImages(const SubscriberPtr& subscriber);
    // The release loop both mono and multi releases share: true when every
    // held image went back; each result is also added to results when given.
    bool _releaseHeld(const SubscriberPtr& subscriber, std::vector<bool>* results);

    // The request a mono-stream subscriber has on file for its camera, after
    // the guards; null when a guard fails.
    boost::shared_ptr<CameraPreferences> _monoPreferences(const std::string& name) const;

    // setResolution and setColorSpace: guards, then the camera's update.
    template <typename Value>
    bool _updateMono(const std::string& name, const Value& value,
        bool (Camera::*update)(boost::shared_ptr<CameraPreferences>, const Value&));

    // setResolutions and setColorSpaces: guards, sizes, then one update a camera.
    template <typename Value>
    std::vector<bool> _setEach(const std::string& name, const std::vector<Value>& values, const char* operation,
        bool (Camera::*update)(boost::shared_ptr<CameraPreferences>, const Value&));

    // Guards, then the call on the resolved camera, or the neutral value.
    template <typename Result, typename Call>
    Result _onCamera(const std::string& cameraName, Result neutral, Call call) const;

    std::string _defaultActiveCamera;
    mutable std::mutex _defaultActiveCameraMutex;
    std::map<std::string, SubscriberPtr> _subscribers;
    mutable boost::shared_mutex _subscribersMutex;
    // The camera registry: an immutable map that each registration replaces
    // whole. Readers load the pointer and never wait; every version is kept
    // until the hub goes, so no map dies under a reader.
    std::atomic<const CameraMap*> _cameras;
    std::vector<std::unique_ptr<const CameraMap>> _cameraMaps;
    std::mutex _camerasMutex; // the writers of the two above
    std::mutex _registrationMutex;

    friend class FrameHubPrivateTestPeer;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
