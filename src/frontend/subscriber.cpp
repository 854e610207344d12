#include "frontend/subscriber.h"

namespace Kelmo {
namespace FrameHub {

Subscriber::Subscriber(const std::string& name)
    : _name(name)
    , _isMultiStream(false)
    , _frameRate(1)
{
}

const std::string& Subscriber::getName() const { return _name; }
bool Subscriber::isProcessing() { return !_imageBufferMap.empty(); }
bool Subscriber::isMultiStream() { return _isMultiStream; }
const std::vector<std::string>& Subscriber::getActiveCameraList() const { return _activeCameraList; }

bool Subscriber::setActiveCameras(const std::vector<std::string>& cameras)
{
    _activeCameraList = cameras;
    if (cameras.size() >= 2)
        _isMultiStream = true;
    return true;
}

int Subscriber::getFrameRate() const { return _frameRate; }

bool Subscriber::setFrameRate(int frameRate)
{
    if (frameRate < 1)
        return false;
    _frameRate = frameRate;
    // The rate also reaches cameras the subscriber has left; after the first
    // refusal the remaining entries keep their old rate.
    bool ok = true;
    for (CameraPreferencesMap::iterator it = _cameraPreferencesMap.begin(); it != _cameraPreferencesMap.end(); ++it)
        ok = ok && it->second->setRefreshRate(frameRate);
    return ok;
}

boost::shared_ptr<CameraPreferences> Subscriber::getCameraPreferences(const std::string& camera)
{
    CameraPreferencesMap::const_iterator it = _cameraPreferencesMap.find(camera);
    return it == _cameraPreferencesMap.end() ? boost::shared_ptr<CameraPreferences>() : it->second;
}

bool Subscriber::setCameraPreferences(const std::string& camera, boost::shared_ptr<CameraPreferences> preferences)
{
    _cameraPreferencesMap[camera] = preferences;
    return true;
}

boost::shared_ptr<ImageBuffer> Subscriber::getImageBuffer(const std::string& camera)
{
    ImageBufferMap::const_iterator it = _imageBufferMap.find(camera);
    return it == _imageBufferMap.end() ? boost::shared_ptr<ImageBuffer>() : it->second;
}

bool Subscriber::setImageBuffer(const std::string& camera, boost::shared_ptr<ImageBuffer> buffer)
{
    const ImageBufferMap::iterator found = _imageBufferMap.find(camera);
    if (found != _imageBufferMap.end()) {
        found->second = std::move(buffer);
    } else if (!_spareImageBufferNode.empty()) {
        _spareImageBufferNode.key() = camera;
        _spareImageBufferNode.mapped() = std::move(buffer);
        _imageBufferMap.insert(std::move(_spareImageBufferNode));
    } else {
        _imageBufferMap.emplace(camera, std::move(buffer));
    }
    return true;
}

void Subscriber::clearImageBuffers()
{
    if (_spareImageBufferNode.empty() && !_imageBufferMap.empty()) {
        _spareImageBufferNode = _imageBufferMap.extract(_imageBufferMap.begin());
        _spareImageBufferNode.mapped().reset(); // the image goes back now, not at the next hand-out
    }
    _imageBufferMap.clear();
}

Camera* Subscriber::knownCamera(const std::string& name) const
{
    for (const auto& known : _knownCameras)
        if (known.first == name)
            return known.second;
    return nullptr;
}

void Subscriber::rememberCamera(const std::string& name, Camera* camera) { _knownCameras.emplace_back(name, camera); }

const std::string& Subscriber::resolveAlias(const std::string& target)
{
    _aliasTarget.assign(target);
    return _aliasTarget;
}

Subscriber::CameraPreferencesMap& Subscriber::getCameraPreferencesMap() { return _cameraPreferencesMap; }
Subscriber::ImageBufferMap& Subscriber::getImageBufferMap() { return _imageBufferMap; }

} // namespace FrameHub
} // namespace Kelmo
