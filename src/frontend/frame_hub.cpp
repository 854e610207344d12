#include <framehub/frame_hub.h>

#include "frontend/frame_hub_p.h"

#include <boost/make_shared.hpp>

namespace Kelmo {
namespace FrameHub {

FrameHub::FrameHub()
    : _private(boost::make_shared<FrameHubPrivate>())
{
}

FrameHub::FrameHub(const std::vector<CameraInfo>& cameras)
    : _private(boost::make_shared<FrameHubPrivate>())
{
    // A camera that fails is simply absent; a builder exception ends the construction.
    for (const CameraInfo& info : cameras)
        _private->addCamera(info);
}

FrameHub::~FrameHub() { }

bool FrameHub::addCamera(const CameraInfo& cameraInfo) { return _private->addCamera(cameraInfo); }

std::string FrameHub::subscribeCamera(const std::string& name, const std::string& cameraName,
    const Resolution& resolution, const ColorSpace& colorSpace, int frameRate)
{
    return _private->subscribeCamera(name, cameraName, resolution, colorSpace, frameRate);
}

std::string FrameHub::subscribeCameras(const std::string& name, const std::vector<std::string>& cameraNames,
    const std::vector<Resolution>& resolutions, const std::vector<ColorSpace>& colorSpaces, int frameRate)
{
    return _private->subscribeCameras(name, cameraNames, resolutions, colorSpaces, frameRate);
}

bool FrameHub::unsubscribe(const std::string& name) { return _private->unsubscribe(name); }

std::vector<std::string> FrameHub::getSubscribers() const { return _private->getSubscribers(); }

FrameHub::Buffer FrameHub::getImage(const std::string& name) { return _private->getImage(name); }

bool FrameHub::releaseImage(const std::string& name) { return _private->releaseImage(name); }

FrameHub::Buffer FrameHub::getDirectRawImage(const std::string& name) { return _private->getDirectRawImage(name); }

bool FrameHub::releaseDirectRawImage(const std::string& name) { return _private->releaseDirectRawImage(name); }

std::vector<FrameHub::Buffer> FrameHub::getImages(const std::string& name) { return _private->getImages(name); }

std::vector<bool> FrameHub::releaseImages(const std::string& name) { return _private->releaseImages(name); }

std::vector<FrameHub::Buffer> FrameHub::getDirectRawImages(const std::string& name)
{
    return _private->getDirectRawImages(name);
}

std::vector<bool> FrameHub::releaseDirectRawImages(const std::string& name)
{
    return _private->releaseDirectRawImages(name);
}

std::string FrameHub::getActiveCamera(const std::string& name) const { return _private->getActiveCamera(name); }

bool FrameHub::setActiveCamera(const std::string& name, const std::string& cameraName)
{
    return _private->setActiveCamera(name, cameraName);
}

Resolution FrameHub::getResolution(const std::string& name) const { return _private->getResolution(name); }

bool FrameHub::setResolution(const std::string& name, const Resolution& resolution)
{
    return _private->setResolution(name, resolution);
}

ColorSpace FrameHub::getColorSpace(const std::string& name) const { return _private->getColorSpace(name); }

bool FrameHub::setColorSpace(const std::string& name, const ColorSpace& colorSpace)
{
    return _private->setColorSpace(name, colorSpace);
}

int FrameHub::getFrameRate(const std::string& name) const { return _private->getFrameRate(name); }

bool FrameHub::setFrameRate(const std::string& name, int frameRate) { return _private->setFrameRate(name, frameRate); }

std::vector<std::string> FrameHub::getActiveCameras(const std::string& name) const
{
    return _private->getActiveCameras(name);
}

std::vector<bool> FrameHub::setActiveCameras(const std::string& name, const std::vector<std::string>& cameraNames)
{
    return _private->setActiveCameras(name, cameraNames);
}

std::vector<Resolution> FrameHub::getResolutions(const std::string& name) const
{
    return _private->getResolutions(name);
}

std::vector<bool> FrameHub::setResolutions(const std::string& name, const std::vector<Resolution>& resolutions)
{
    return _private->setResolutions(name, resolutions);
}

std::vector<ColorSpace> FrameHub::getColorSpaces(const std::string& name) const
{
    return _private->getColorSpaces(name);
}

std::vector<bool> FrameHub::setColorSpaces(const std::string& name, const std::vector<ColorSpace>& colorSpaces)
{
    return _private->setColorSpaces(name, colorSpaces);
}

std::string FrameHub::getDefaultActiveCamera() const { return _private->getDefaultActiveCamera(); }

bool FrameHub::setDefaultActiveCamera(const std::string& cameraName)
{
    return _private->setDefaultActiveCamera(cameraName);
}

bool FrameHub::openCamera(const std::string& cameraName) { return _private->openCamera(cameraName); }

bool FrameHub::closeCamera(const std::string& cameraName) { return _private->closeCamera(cameraName); }

bool FrameHub::isCameraOpen(const std::string& cameraName) const { return _private->isCameraOpen(cameraName); }

bool FrameHub::startCamera(const std::string& cameraName) { return _private->startCamera(cameraName); }

bool FrameHub::stopCamera(const std::string& cameraName) { return _private->stopCamera(cameraName); }

bool FrameHub::isCameraStarted(const std::string& cameraName) const { return _private->isCameraStarted(cameraName); }

bool FrameHub::resetCamera(const std::string& cameraName) { return _private->resetCamera(cameraName); }

std::string FrameHub::getCameraModel(const std::string& cameraName) const
{
    return _private->getCameraModel(cameraName);
}

std::string FrameHub::getCameraName(const std::string& cameraName) const { return _private->getCameraName(cameraName); }

int FrameHub::getCameraFrameRate(const std::string& cameraName) const
{
    return _private->getCameraFrameRate(cameraName);
}

std::pair<int, int> FrameHub::getCameraFrameRateRange(const std::string& cameraName) const
{
    return _private->getCameraFrameRateRange(cameraName);
}

Resolution FrameHub::getCameraResolution(const std::string& cameraName) const
{
    return _private->getCameraResolution(cameraName);
}

std::pair<Resolution, Resolution> FrameHub::getCameraResolutionRange(const std::string& cameraName) const
{
    return _private->getCameraResolutionRange(cameraName);
}

ColorSpace FrameHub::getCameraColorSpace(const std::string& cameraName) const
{
    return _private->getCameraColorSpace(cameraName);
}

FieldOfView FrameHub::getCameraFieldOfView(const std::string& cameraName) const
{
    return _private->getCameraFieldOfView(cameraName);
}

int FrameHub::getCameraParameter(const std::string& cameraName, const Parameter& parameter) const
{
    return _private->getCameraParameter(cameraName, parameter);
}

ParameterInfo FrameHub::getCameraParameterInfo(const std::string& cameraName, const Parameter& parameter) const
{
    return _private->getCameraParameterInfo(cameraName, parameter);
}

bool FrameHub::setCameraParameter(const std::string& cameraName, const Parameter& parameter, int value)
{
    return _private->setCameraParameter(cameraName, parameter, value);
}

bool FrameHub::setCameraParameterToDefault(const std::string& cameraName, const Parameter& parameter)
{
    return _private->setCameraParameterToDefault(cameraName, parameter);
}

bool FrameHub::setAllCameraParametersToDefault(const std::string& cameraName)
{
    return _private->setAllCameraParametersToDefault(cameraName);
}

std::vector<float> FrameHub::getAngularPositionFromImagePosition(
    const std::string& cameraName, const std::vector<float>& imagePosition) const
{
    return _private->getAngularPositionFromImagePosition(cameraName, imagePosition);
}

std::vector<float> FrameHub::getImagePositionFromAngularPosition(
    const std::string& cameraName, const std::vector<float>& angularPosition) const
{
    return _private->getImagePositionFromAngularPosition(cameraName, angularPosition);
}

std::vector<float> FrameHub::getAngularSizeFromImageSize(
    const std::string& cameraName, const std::vector<float>& imageSize) const
{
    return _private->getAngularSizeFromImageSize(cameraName, imageSize);
}

std::vector<float> FrameHub::getImageSizeFromAngularSize(
    const std::string& cameraName, const std::vector<float>& angularSize) const
{
    return _private->getImageSizeFromAngularSize(cameraName, angularSize);
}

std::vector<float> FrameHub::getImageInfoFromAngularInfo(
    const std::string& cameraName, const std::vector<float>& angularInfo) const
{
    return _private->getImageInfoFromAngularInfo(cameraName, angularInfo);
}

std::vector<float> FrameHub::getImageInfoFromAngularInfoWithResolution(
    const std::string& cameraName, const std::vector<float>& angularInfo, const Resolution& resolution) const
{
    return _private->getImageInfoFromAngularInfoWithResolution(cameraName, angularInfo, resolution);
}

bool FrameHub::putImage(
    const std::string& cameraName, const Resolution& resolution, const ColorSpace& colorSpace, const void* data)
{
    return _private->putImage(cameraName, resolution, colorSpace, data);
}

CameraPreferences FrameHub::getExpectedImageParameters(const std::string& cameraName) const
{
    return _private->getExpectedImageParameters(cameraName);
}

std::vector<std::string> FrameHub::getCameraIndexes() const { return _private->getCameraIndexes(); }

bool FrameHub::isCamera3DPlugged(bool) { return true; }

} // namespace FrameHub
} // namespace Kelmo
