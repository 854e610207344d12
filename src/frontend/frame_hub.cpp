#include <framehub/frame_hub.h>

#include "frame_hub_p.h"

#include "../types/framehub_log.h"

#include <boost/make_shared.hpp>

namespace Kelmo {
namespace FrameHub {

namespace {
lumo::log::CategoryType logCategory = lumo::log::addCategory("vision.framehub");
} // namespace

FrameHub::FrameHub()
    : _private(boost::make_shared<FrameHubPrivate>())
{
    (void)logCategory;
}

FrameHub::~FrameHub() {}

std::string FrameHub::getDefaultActiveCamera() const { return _private->getDefaultActiveCamera(); }
std::vector<std::string> FrameHub::getSubscribers() const { return _private->getSubscribers(); }
std::vector<std::string> FrameHub::getCameraIndexes() const { return _private->getCameraIndexes(); }
bool FrameHub::isCamera3DPlugged(bool) { return true; }

} // namespace FrameHub
} // namespace Kelmo
