#ifndef FRAMEHUB_SRC_TYPES_LOCKS_H
#define FRAMEHUB_SRC_TYPES_LOCKS_H

#include <boost/thread/locks.hpp>
#include <boost/thread/shared_mutex.hpp>

namespace Kelmo {
namespace FrameHub {

// The scoped lock types of the hub and the cameras, all on boost::shared_mutex.
typedef boost::shared_lock<boost::shared_mutex> SharedLock;
typedef boost::upgrade_lock<boost::shared_mutex> UpgradeLock;
typedef boost::upgrade_to_unique_lock<boost::shared_mutex> RaisedLock;
typedef boost::unique_lock<boost::shared_mutex> ExclusiveLock;

} // namespace FrameHub
} // namespace Kelmo

#endif
