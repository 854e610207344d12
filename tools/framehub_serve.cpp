// framehub-serve: a hub built from the command line whose streams are served
// over RTSP, each stream a subscriber of the hub that fetches only while a
// client watches.
#include "serve_options.h"
#include "serve_stream.h"

#include <framehub/frame_hub.h>
#include <lumo/log.h>

#include <glib-unix.h>
#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <thread>
#include <unistd.h>

using namespace Kelmo::FrameHub;
using serve::Clock;
using serve::ServedStream;

namespace {

bool hasElement(const char* name)
{
    GstElementFactory* factory = gst_element_factory_find(name);
    if (factory)
        gst_object_unref(factory);
    return factory != nullptr;
}

struct Element {
    const char* name;
    const char* package;
};

// The encoder and payloader of a stream, as a launch line fragment that ends
// in pay0; empty with a message naming what is missing.
std::string encoderFor(const std::string& codec, const serve::StreamOption& s, std::string& missing)
{
    const Element needed[]
        = { { "appsrc", "gstreamer1.0-plugins-base" }, { "videoconvert", "gstreamer1.0-plugins-base" } };
    for (const Element& e : needed)
        if (!hasElement(e.name)) {
            missing = std::string(e.name) + " (" + e.package + ")";
            return std::string();
        }
    const bool x264 = hasElement("x264enc"), openh264 = hasElement("openh264enc");
    const bool h264 = (codec == "h264" || (codec == "auto" && (x264 || openh264)));
    // About a tenth of a bit a pixel, in kbit/s.
    const uint64_t kbits = std::max<uint64_t>(128, s.size.width * s.size.height * s.rate / 10000);
    const std::string gop = std::to_string(s.rate);
    if (h264) {
        if (!x264 && !openh264) {
            missing = "x264enc (gstreamer1.0-plugins-ugly) or openh264enc (gstreamer1.0-plugins-bad)";
            return std::string();
        }
        if (!hasElement("rtph264pay")) {
            missing = "rtph264pay (gstreamer1.0-plugins-good)";
            return std::string();
        }
        // Baseline: no B-frames, so no reordering delay at either end.
        const std::string encoder = x264
            ? "x264enc tune=zerolatency speed-preset=ultrafast bitrate=" + std::to_string(kbits) + " key-int-max=" + gop
            : "openh264enc bitrate=" + std::to_string(kbits * 1000) + " gop-size=" + gop + " complexity=low";
        return "video/x-raw,format=I420 ! " + encoder
            + " ! video/x-h264,profile=constrained-baseline ! rtph264pay name=pay0 pt=96 config-interval=-1";
    }
    if (!hasElement("jpegenc") || !hasElement("rtpjpegpay")) {
        missing = "jpegenc and rtpjpegpay (gstreamer1.0-plugins-good)";
        return std::string();
    }
    return "video/x-raw,format=I420 ! jpegenc quality=85 ! rtpjpegpay name=pay0 pt=26";
}

std::string codecName(const std::string& launch)
{
    return launch.find("x264enc") != std::string::npos    ? "H.264 (x264enc)"
        : launch.find("openh264enc") != std::string::npos ? "H.264 (openh264enc)"
                                                          : "Motion-JPEG";
}

// What the server's callbacks share. The client callbacks all run on the
// main loop's thread; only media-configure and unprepared may come from a
// media's own thread and they touch nothing here but the stream.
struct Server {
    std::vector<std::unique_ptr<ServedStream>> streams;
    std::map<GstRTSPClient*, std::set<ServedStream*>> playing;
    GMainLoop* loop = nullptr;
    Clock::time_point origin = Clock::now();
};

ServedStream* streamOfUrl(Server& server, const GstRTSPContext* ctx)
{
    if (!ctx || !ctx->uri || !ctx->uri->abspath)
        return nullptr;
    const std::string path = ctx->uri->abspath;
    ServedStream* best = nullptr;
    size_t bestLength = 0;
    for (auto& s : server.streams) {
        const std::string mount = "/" + s->option().path;
        if (path.compare(0, mount.size(), mount) == 0 && (path.size() == mount.size() || path[mount.size()] == '/')
            && mount.size() > bestLength) {
            best = s.get();
            bestLength = mount.size();
        }
    }
    return best;
}

void onPlay(GstRTSPClient* client, GstRTSPContext* ctx, gpointer data)
{
    Server& server = *static_cast<Server*>(data);
    ServedStream* stream = streamOfUrl(server, ctx);
    if (stream && server.playing[client].insert(stream).second)
        stream->clientJoined();
}

void onTeardown(GstRTSPClient* client, GstRTSPContext* ctx, gpointer data)
{
    Server& server = *static_cast<Server*>(data);
    ServedStream* stream = streamOfUrl(server, ctx);
    auto it = server.playing.find(client);
    if (stream && it != server.playing.end() && it->second.erase(stream))
        stream->clientLeft();
}

void onClosed(GstRTSPClient* client, gpointer data)
{
    Server& server = *static_cast<Server*>(data);
    auto it = server.playing.find(client);
    if (it == server.playing.end())
        return;
    for (ServedStream* stream : it->second)
        stream->clientLeft();
    server.playing.erase(it);
}

void onClientConnected(GstRTSPServer*, GstRTSPClient* client, gpointer data)
{
    g_signal_connect(client, "play-request", G_CALLBACK(onPlay), data);
    g_signal_connect(client, "teardown-request", G_CALLBACK(onTeardown), data);
    g_signal_connect(client, "closed", G_CALLBACK(onClosed), data);
}

void onUnprepared(GstRTSPMedia* media, gpointer data)
{
    GstElement* bin = gst_rtsp_media_get_element(media);
    GstElement* appsrc = gst_bin_get_by_name_recurse_up(GST_BIN(bin), "src");
    if (appsrc) {
        static_cast<ServedStream*>(data)->detach(appsrc);
        gst_object_unref(appsrc);
    }
    gst_object_unref(bin);
}

void onMediaConfigure(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer data)
{
    GstElement* bin = gst_rtsp_media_get_element(media);
    GstElement* appsrc = gst_bin_get_by_name_recurse_up(GST_BIN(bin), "src");
    if (appsrc) {
        static_cast<ServedStream*>(data)->attach(appsrc);
        g_signal_connect(media, "unprepared", G_CALLBACK(onUnprepared), data);
        gst_object_unref(appsrc);
    }
    gst_object_unref(bin);
}

GstRTSPFilterResult closeClient(GstRTSPServer*, GstRTSPClient*, gpointer) { return GST_RTSP_FILTER_REMOVE; }

GstRTSPFilterResult removeSession(GstRTSPSessionPool*, GstRTSPSession*, gpointer) { return GST_RTSP_FILTER_REMOVE; }

gboolean onStopSignal(gpointer data)
{
    g_main_loop_quit(static_cast<GMainLoop*>(data));
    return G_SOURCE_CONTINUE;
}

gboolean cleanupSessions(gpointer data)
{
    GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(GST_RTSP_SERVER(data));
    gst_rtsp_session_pool_cleanup(pool);
    g_object_unref(pool);
    return G_SOURCE_CONTINUE;
}

gboolean printStatus(gpointer data)
{
    const Server& server = *static_cast<const Server*>(data);
    std::ostringstream line;
    line << "[" << std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - server.origin).count() << " s]";
    for (const auto& s : server.streams)
        line << "  " << s->option().path << ": " << s->clients() << (s->clients() == 1 ? " client, " : " clients, ")
             << s->frames() << " frames";
    std::printf("\r%s\033[K", line.str().c_str());
    std::fflush(stdout);
    return G_SOURCE_CONTINUE;
}

// Subscribes once as each stream would and reads the request back: a camera
// that would correct it can't serve the stream as asked.
bool checkStreams(FrameHub& hub, const serve::Options& options)
{
    for (const serve::StreamOption& s : options.streams) {
        const std::string name = hub.subscribeCamera("serve_check", s.camera, s.size, s.colorSpace, s.rate);
        const Resolution size = hub.getResolution(name);
        const int rate = hub.getFrameRate(name);
        const ColorSpace space = hub.getColorSpace(name);
        if (!name.empty())
            hub.unsubscribe(name);
        if (name.empty() || size != s.size || rate != s.rate || space != s.colorSpace) {
            std::cerr << "framehub-serve: camera '" << s.camera << "' can't serve stream '" << s.path << "' as "
                      << s.size.width << "x" << s.size.height << "@" << s.rate << " "
                      << getColorSpaceName(s.colorSpace);
            if (!name.empty())
                std::cerr << " (it would give " << size.width << "x" << size.height << "@" << rate << " "
                          << getColorSpaceName(space) << ")";
            std::cerr << "\n";
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    serve::Options options;
    const int parsed = serve::parse(argc, argv, options, std::cout, std::cerr);
    if (parsed != 0)
        return parsed == 1 ? 0 : 2;
    lumo::log::setLevel(options.verbose ? 5 : 2);
    gst_init(nullptr, nullptr);

    std::unique_ptr<FrameHub> hub;
    try {
        hub.reset(new FrameHub(options.cameras));
    } catch (const std::exception& e) {
        std::cerr << "framehub-serve: can't build the cameras: " << e.what() << "\n";
        return 2;
    }
    if (!checkStreams(*hub, options))
        return 2;

    Server server;
    serve::Feeder feeder(*hub, options.cameras, options.timeCode);
    GstRTSPServer* rtsp = gst_rtsp_server_new();
    gst_rtsp_server_set_address(rtsp, options.bind.c_str());
    gst_rtsp_server_set_service(rtsp, std::to_string(options.port).c_str());
    GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(rtsp);
    if (!options.user.empty()) {
        GstRTSPAuth* auth = gst_rtsp_auth_new();
        GstRTSPToken* token
            = gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, options.user.c_str(), NULL);
        gchar* basic = gst_rtsp_auth_make_basic(options.user.c_str(), options.password.c_str());
        gst_rtsp_auth_add_basic(auth, basic, token);
        g_free(basic);
        gst_rtsp_token_unref(token);
        gst_rtsp_server_set_auth(rtsp, auth);
        g_object_unref(auth);
    }

    std::vector<std::string> lines;
    for (const serve::StreamOption& s : options.streams) {
        std::string missing;
        const std::string encoder = encoderFor(options.codec, s, missing);
        if (encoder.empty()) {
            std::cerr << "framehub-serve: the GStreamer element " << missing << " is not installed\n";
            return 2;
        }
        server.streams.emplace_back(new ServedStream(*hub, feeder, s));
        ServedStream* stream = server.streams.back().get();
        GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
        const std::string launch = "( appsrc name=src is-live=true format=time do-timestamp=false max-buffers=2 "
                                   "leaky-type=downstream caps=\""
            + stream->rawCaps() + "\" ! videoconvert ! " + encoder + " )";
        gst_rtsp_media_factory_set_launch(factory, launch.c_str());
        // A pipeline for each client: a client joins at a key frame of its
        // own encoder, and never a running pipeline's clock. The stream
        // fetches and copies once for all of them.
        gst_rtsp_media_factory_set_shared(factory, FALSE);
        if (!options.user.empty())
            gst_rtsp_media_factory_add_role(factory, options.user.c_str(), GST_RTSP_PERM_MEDIA_FACTORY_ACCESS,
                G_TYPE_BOOLEAN, TRUE, GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, NULL);
        g_signal_connect(factory, "media-configure", G_CALLBACK(onMediaConfigure), stream);
        gst_rtsp_mount_points_add_factory(mounts, ("/" + s.path).c_str(), factory);
        std::ostringstream line;
        line << "  rtsp://" << options.bind << ":" << options.port << "/" << s.path << "  " << s.camera << " "
             << s.size.width << "x" << s.size.height << "@" << s.rate << " "
             << getColorSpaceName(s.colorSpace).substr(11) << ", " << codecName(encoder);
        lines.push_back(line.str());
    }
    g_object_unref(mounts);

    GError* error = nullptr;
    GSource* source = gst_rtsp_server_create_source(rtsp, nullptr, &error);
    if (!source) {
        std::cerr << "framehub-serve: can't listen on " << options.bind << ":" << options.port << ": "
                  << (error ? error->message : "unknown error") << "\n";
        g_clear_error(&error);
        g_object_unref(rtsp);
        return 1;
    }
    g_source_attach(source, nullptr);
    g_signal_connect(rtsp, "client-connected", G_CALLBACK(onClientConnected), &server);

    server.loop = g_main_loop_new(nullptr, FALSE);
    const guint intSource = g_unix_signal_add(SIGINT, onStopSignal, server.loop);
    const guint termSource = g_unix_signal_add(SIGTERM, onStopSignal, server.loop);
    const guint cleanupSource = g_timeout_add_seconds(2, cleanupSessions, rtsp);
    const bool tty = isatty(STDOUT_FILENO);
    const guint statusSource = tty ? g_timeout_add_seconds(1, printStatus, &server) : 0;

    feeder.start();
    for (auto& s : server.streams)
        s->start();
    std::printf("framehub-serve: serving %zu stream%s%s\n", lines.size(), lines.size() == 1 ? "" : "s",
        options.user.empty() ? "" : " (basic authentication)");
    for (const std::string& line : lines)
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);

    server.origin = Clock::now();
    g_main_loop_run(server.loop);

    // Subscribers first, so that no push races the pipelines' teardown.
    for (auto& s : server.streams)
        s->stop();
    feeder.stop();
    gst_rtsp_server_client_filter(rtsp, closeClient, nullptr);
    GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(rtsp);
    gst_rtsp_session_pool_filter(pool, removeSession, nullptr);
    g_object_unref(pool);
    // The pipelines unprepare on threads of their own; their callbacks need
    // the streams, so wait for them, boundedly, before anything goes away.
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(3);
    auto pipelines = [&] {
        int n = 0;
        for (const auto& s : server.streams)
            n += s->pipelines();
        return n;
    };
    while (pipelines() > 0 && Clock::now() < deadline) {
        while (g_main_context_iteration(nullptr, FALSE)) { }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (pipelines() > 0) {
        std::cerr << "framehub-serve: pipelines still shutting down; leaving them to the exit\n";
        for (auto& s : server.streams)
            static_cast<void>(s.release()); // leaked: a late callback must find the stream alive
    }
    for (guint id : { intSource, termSource, cleanupSource, statusSource })
        if (id)
            g_source_remove(id);
    g_source_destroy(source);
    g_source_unref(source);
    g_object_unref(rtsp);
    g_main_loop_unref(server.loop);
    for (const CameraInfo& c : options.cameras)
        if (hub->isCameraOpen(c.name))
            hub->closeCamera(c.name);
    if (tty)
        std::printf("\n");
    std::printf("framehub-serve: stopped\n");
    std::fflush(stdout);
    return 0;
}
