#ifndef FRAMEHUB_TOOLS_SERVE_OPTIONS_H
#define FRAMEHUB_TOOLS_SERVE_OPTIONS_H

#include <framehub/camera_builder.h>
#include <framehub/frame_hub_type.h>

#include <ostream>
#include <string>
#include <vector>

// The command line of framehub-serve.
namespace serve {

struct StreamOption {
    std::string path; // mount point without the leading slash
    std::string camera;
    Kelmo::FrameHub::Resolution size;
    int rate = 0;
    Kelmo::FrameHub::ColorSpace colorSpace = Kelmo::FrameHub::COLORSPACE_UNKNOWN; // unknown: the camera's default
};

struct Options {
    std::vector<Kelmo::FrameHub::CameraInfo> cameras;
    std::vector<StreamOption> streams;
    std::string codec = "auto"; // auto, h264 or mjpeg
    int port = 8554;
    std::string bind = "127.0.0.1";
    std::string user;
    std::string password; // read from --password-file
    bool verbose = false;
    bool timeCode = false;
};

extern const char* const kUsage;

// True for cameras served as depth: the models whose name ends in "3D".
bool isDepthModel(const std::string& model);

// "RGB_888" or "COLORSPACE_RGB_888", any case; COLORSPACE_UNKNOWN otherwise.
Kelmo::FrameHub::ColorSpace parseColorSpace(const std::string& text);

// Returns 0 to run, 1 after --help (usage printed to out), 2 on a bad
// command line (one line naming the fault printed to err).
int parse(int argc, char** argv, Options& options, std::ostream& out, std::ostream& err);

} // namespace serve

#endif
