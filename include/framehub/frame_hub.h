#ifndef FRAMEHUB_FRAME_HUB_H
#define FRAMEHUB_FRAME_HUB_H

#include <framehub/camera_builder.h>
#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>
#include <framehub/image_buffer.h>

#include <boost/shared_ptr.hpp>

#include <string>
#include <utility>
#include <vector>

namespace Kelmo {
namespace FrameHub {

class FrameHubPrivate;

// What a client sees: a facade that forwards every call to its private part.
//
// A client subscribes under a name stem and gets back the generated name
// (stem_0, stem_1, ...) that it uses from then on. Images are fetched and
// must be released by the same name; a failure is a neutral value (false,
// empty, null, a sentinel) and a log record, never an exception, apart from
// Kelmo::KelmoError for a camera description the library can't build.
//
// Every call may come from any thread. One subscriber name is driven by one
// thread at a time: the calls made with a given name are not serialised
// against each other.
class FrameHub {
public:
    typedef boost::shared_ptr<ImageBuffer> Buffer;

    FrameHub();
    // Registers each camera in order; the first becomes the default.
    explicit FrameHub(const std::vector<CameraInfo>& cameras);
    virtual ~FrameHub();

    FrameHub(const FrameHub&) = delete;
    FrameHub& operator=(const FrameHub&) = delete;

    bool addCamera(const CameraInfo& cameraInfo);

    // Subscribing. cameraName may be "Default", the default camera.
    std::string subscribeCamera(const std::string& name, const std::string& cameraName, const Resolution& resolution,
        const ColorSpace& colorSpace, int frameRate);
    std::string subscribeCameras(const std::string& name, const std::vector<std::string>& cameraNames,
        const std::vector<Resolution>& resolutions, const std::vector<ColorSpace>& colorSpaces, int frameRate);
    bool unsubscribe(const std::string& name);
    std::vector<std::string> getSubscribers() const;

    // Images: valid from the get until the release.
    Buffer getImage(const std::string& name);
    bool releaseImage(const std::string& name);
    Buffer getDirectRawImage(const std::string& name);
    bool releaseDirectRawImage(const std::string& name);
    std::vector<Buffer> getImages(const std::string& name);
    std::vector<bool> releaseImages(const std::string& name);
    std::vector<Buffer> getDirectRawImages(const std::string& name);
    std::vector<bool> releaseDirectRawImages(const std::string& name);

    // Retargeting a subscriber.
    std::string getActiveCamera(const std::string& name) const;
    bool setActiveCamera(const std::string& name, const std::string& cameraName);
    Resolution getResolution(const std::string& name) const;
    bool setResolution(const std::string& name, const Resolution& resolution);
    ColorSpace getColorSpace(const std::string& name) const;
    bool setColorSpace(const std::string& name, const ColorSpace& colorSpace);
    int getFrameRate(const std::string& name) const;
    bool setFrameRate(const std::string& name, int frameRate);
    std::vector<std::string> getActiveCameras(const std::string& name) const;
    std::vector<bool> setActiveCameras(const std::string& name, const std::vector<std::string>& cameraNames);
    std::vector<Resolution> getResolutions(const std::string& name) const;
    std::vector<bool> setResolutions(const std::string& name, const std::vector<Resolution>& resolutions);
    std::vector<ColorSpace> getColorSpaces(const std::string& name) const;
    std::vector<bool> setColorSpaces(const std::string& name, const std::vector<ColorSpace>& colorSpaces);
    std::string getDefaultActiveCamera() const;
    bool setDefaultActiveCamera(const std::string& cameraName);

    // Cameras by name ("Default" accepted).
    bool openCamera(const std::string& cameraName);
    bool closeCamera(const std::string& cameraName);
    bool isCameraOpen(const std::string& cameraName) const;
    bool startCamera(const std::string& cameraName);
    bool stopCamera(const std::string& cameraName);
    bool isCameraStarted(const std::string& cameraName) const;
    bool resetCamera(const std::string& cameraName);
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

    // Angles from the image centre against fractions of the image.
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

    // Feeding a simulated camera, by its own name ("Default" is refused).
    bool putImage(
        const std::string& cameraName, const Resolution& resolution, const ColorSpace& colorSpace, const void* data);
    CameraPreferences getExpectedImageParameters(const std::string& cameraName) const;

    std::vector<std::string> getCameraIndexes() const;
    // Always true.
    bool isCamera3DPlugged(bool);

private:
    boost::shared_ptr<FrameHubPrivate> _private;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
