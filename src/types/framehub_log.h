#ifndef FRAMEHUB_SRC_TYPES_FRAMEHUB_LOG_H
#define FRAMEHUB_SRC_TYPES_FRAMEHUB_LOG_H

#include <lumo/log.h>

// The library's one log macro. Each source file declares its category as a
// file-level variable; the message is only formatted when the category's
// level lets the record through.
//   FRAMEHUB_LOG(logCategory, 2) << "text " << value;
// A one-pass loop rather than if/else, so that it nests safely under an if.
#define FRAMEHUB_LOG(category, level) FRAMEHUB_LOG_AS(category, level, __func__)

// The same, for a helper that logs on behalf of the operation named.
#define FRAMEHUB_LOG_AS(category, level, function)                                                                     \
    for (bool framehubLogOnce = lumo::log::categoryLevel(category) >= (level); framehubLogOnce;                        \
         framehubLogOnce = false)                                                                                      \
    lumo::log::LogStream((level), "", (function), 0, (category)).flush()

#endif
