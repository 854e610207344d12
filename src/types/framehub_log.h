#ifndef FRAMEHUB_SRC_TYPES_FRAMEHUB_LOG_H
#define FRAMEHUB_SRC_TYPES_FRAMEHUB_LOG_H

#include <lumo/log.h>

// The library's one log idiom. A source file names its category once:
//   FRAMEHUB_LOG_CATEGORY("vision.framehub.camera")
// and writes records with a named level and the function's name:
//   FRAMEHUB_LOG(LEVEL_ERROR) << "text " << value;
// The message is only formatted when the category's level lets it through.
#define FRAMEHUB_LOG_CATEGORY(name)                                                                                    \
    namespace {                                                                                                        \
    const lumo::log::CategoryType framehubLogCategory = lumo::log::addCategory(name);                                  \
    }

#define FRAMEHUB_LOG(level) FRAMEHUB_LOG_TO(framehubLogCategory, level, __func__)

// For a helper that logs on behalf of the operation it serves.
#define FRAMEHUB_LOG_AS(level, function) FRAMEHUB_LOG_TO(framehubLogCategory, level, function)

// For a shared helper that logs into its caller's category. A one-pass loop
// rather than if/else, so that it nests safely under an if.
#define FRAMEHUB_LOG_TO(category, level, function)                                                                     \
    for (bool framehubLogOnce = lumo::log::categoryLevel(category) >= (lumo::log::level); framehubLogOnce;             \
         framehubLogOnce = false)                                                                                      \
    lumo::log::LogStream((lumo::log::level), "", (function), 0, (category)).flush()

#endif
