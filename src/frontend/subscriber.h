#ifndef FRAMEHUB_SRC_FRONTEND_SUBSCRIBER_H
#define FRAMEHUB_SRC_FRONTEND_SUBSCRIBER_H

#include <framehub/camera_preferences.h>
#include <framehub/image_buffer.h>

#include <boost/shared_ptr.hpp>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Kelmo {
namespace FrameHub {

class Camera;

// The record of one subscription: plain store, no lock, no policy. One
// thread drives one subscriber at a time.
class Subscriber {
public:
    typedef std::map<std::string, boost::shared_ptr<CameraPreferences>> CameraPreferencesMap;
    typedef std::map<std::string, boost::shared_ptr<ImageBuffer>> ImageBufferMap;

    explicit Subscriber(const std::string& name);

    const std::string& getName() const;
    // True while a hand-out has not been released.
    bool isProcessing();
    bool isMultiStream();

    const std::vector<std::string>& getActiveCameraList() const;
    // Two or more cameras make the record multi-stream, for good.
    bool setActiveCameras(const std::vector<std::string>& cameras);

    int getFrameRate() const;
    bool setFrameRate(int frameRate);

    boost::shared_ptr<CameraPreferences> getCameraPreferences(const std::string& camera);
    bool setCameraPreferences(const std::string& camera, boost::shared_ptr<CameraPreferences> preferences);
    boost::shared_ptr<ImageBuffer> getImageBuffer(const std::string& camera);
    bool setImageBuffer(const std::string& camera, boost::shared_ptr<ImageBuffer> buffer);

    CameraPreferencesMap& getCameraPreferencesMap();
    ImageBufferMap& getImageBufferMap();
    // Empties the hand-out map but keeps one of its nodes for the next
    // hand-out, so that a steady fetch and release allocate nothing.
    void clearImageBuffers();

    // Cameras never leave the hub, so one found by name can be kept: the
    // per-frame path then skips the registry's look-up. Null when not kept;
    // a camera is remembered once, after knownCamera missed it.
    Camera* knownCamera(const std::string& name) const;
    void rememberCamera(const std::string& name, Camera* camera);
    // The default camera's name as the per-frame path last resolved the
    // alias: kept here so that its storage serves from frame to frame.
    const std::string& resolveAlias(const std::string& target);

private:
    std::string _name;
    bool _isMultiStream;
    std::vector<std::string> _activeCameraList;
    CameraPreferencesMap _cameraPreferencesMap;
    ImageBufferMap _imageBufferMap;
    ImageBufferMap::node_type _spareImageBufferNode;
    std::vector<std::pair<std::string, Camera*>> _knownCameras;
    std::string _aliasTarget;
    int _frameRate;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
