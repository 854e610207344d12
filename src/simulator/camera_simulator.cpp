#include "simulator/camera_simulator.h"

#include "pipeline/camera_2d.h"
#include "pipeline/camera_3d.h"
#include "types/framehub_log.h"

#include <cstring>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camerasimulator")

template <typename T>
CameraSimulator<T>::CameraSimulator(const std::string& model, const std::string& name, const std::string&)
    : T(model, name)
{
}

template <typename T> CameraSimulator<T>::~CameraSimulator() { }

template <typename T> bool CameraSimulator<T>::_initDevice() { return true; }

template <typename T> bool CameraSimulator<T>::_releaseDevice() { return true; }

template <typename T> bool CameraSimulator<T>::_startStreaming() { return true; }

template <typename T> bool CameraSimulator<T>::_stopStreaming() { return true; }

template <typename T> bool CameraSimulator<T>::_setResolution(const Resolution& resolution)
{
    this->_stop();
    this->_currentPreferences.setResolution(resolution);
    this->_start();
    return true;
}

template <typename T> bool CameraSimulator<T>::_setColorSpace(const ColorSpace& colorSpace)
{
    FRAMEHUB_LOG(LEVEL_ERROR) << "setColorSpace(" << static_cast<int>(colorSpace)
                              << "): Operation not supported on this camera.";
    return false;
}

template <typename T> bool CameraSimulator<T>::_setFrameRate(int frameRate)
{
    // The texts keep 5 and 30 whatever the limits are; the stored value
    // follows the native set.
    const int lowest = *this->_nativelySupportedFrameRates.begin();
    const int highest = *this->_nativelySupportedFrameRates.rbegin();
    if (frameRate < lowest) {
        FRAMEHUB_LOG(LEVEL_WARNING) << "setFrameRate(): Frame Rate requested too low.\nAutomaticaly set to 5.";
        frameRate = lowest;
    }
    if (frameRate > highest) {
        FRAMEHUB_LOG(LEVEL_WARNING) << "setFrameRate(): Frame Rate requested too high.\nAutomaticaly set to 30.";
        frameRate = highest;
    }
    if (frameRate != this->_currentPreferences.getRefreshRate())
        this->_currentPreferences.setRefreshRate(frameRate);
    return true;
}

template <typename T>
bool CameraSimulator<T>::_checkFrame(
    const Resolution& resolution, const void* data, uint64_t bytesPerPixel, const char* frameKind) const
{
    if (!data) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "_putImage") << "putImage(): No pixel data given.";
        return false;
    }
    const Resolution target = this->_currentPreferences.getResolution();
    if (resolution.width == 0 || resolution.height == 0 || target.width == 0 || target.height == 0) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "_putImage")
            << "putImage(): Empty image size " << resolution.width << "x" << resolution.height << " for a camera at "
            << target.width << "x" << target.height << ".";
        return false;
    }
    const ColorSpace stored = this->_currentPreferences.getColorSpace();
    if (getColorSpaceDepth(stored) != bytesPerPixel) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "_putImage") << "putImage(): Camera colorspace " << static_cast<int>(stored)
                                                  << " can't hold " << frameKind << " frames.";
        return false;
    }
    return true;
}

template <typename T>
typename CameraSimulator<T>::Resize CameraSimulator<T>::_planResize(const Resolution& frame, uint64_t& factor) const
{
    const Resolution target = this->_currentPreferences.getResolution();
    factor = 1;
    if (frame.width == 0 || frame.height == 0 || target.width == 0 || target.height == 0)
        return RESIZE_REFUSED;
    if (frame == target)
        return RESIZE_COPY;
    // Widths alone choose the direction; remainders are not looked at.
    const bool shrink = frame.width > target.width;
    const uint64_t fx = shrink ? frame.width / target.width : target.width / frame.width;
    const uint64_t fy = shrink ? frame.height / target.height : target.height / frame.height;
    if (fx != fy)
        return RESIZE_REFUSED;
    factor = fy;
    return shrink ? RESIZE_SUBSAMPLE : RESIZE_OVERSAMPLE;
}

template <typename T> void CameraSimulator<T>::_createDefaultImage(ImageBuffer& store) const
{
    store.setResolution(this->_currentPreferences.getResolution());
    store.setColorSpace(this->_currentPreferences.getColorSpace());
    store.setTimeStamp(0);
    store.setMonotonicTimeStamp(-1);
    std::memset(store.getData(), 0, store.getSize());
}

template <typename T>
CameraPreferences CameraSimulator<T>::_expectedImageParameters(ColorSpace colorSpace, lumo::log::CategoryType category)
{
    if (!this->_open()) {
        FRAMEHUB_LOG_TO(category, LEVEL_ERROR, "_getExpectedImageParameters")
            << "_getExpectedImageParameters(): Can't open the camera device.";
        return CameraPreferences(CameraPreferences::defaultResolution, CameraPreferences::defaultColorSpace, 0);
    }
    return CameraPreferences(
        this->_currentPreferences.getResolution(), colorSpace, this->_currentPreferences.getRefreshRate());
}

template class CameraSimulator<Camera2D>;
template class CameraSimulator<Camera3D>;

} // namespace FrameHub
} // namespace Kelmo
