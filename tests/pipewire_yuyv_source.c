/* A PipeWire video source for the integration test: 640x480 YUYV at 30
 * frames a second, every pixel the Y, U, V given on the command line.
 * It serves one consumer after another, as the camera opens and closes the
 * device several times: the buffers of a link that went away are never given
 * back to a stream, so a stream that was linked and has stopped streaming
 * for a while is connected afresh.
 *
 *   pipewire_yuyv_source NODE-NAME Y U V
 */
#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#define WIDTH 640
#define HEIGHT 480
#define RATE 30

struct source {
    struct pw_main_loop* loop;
    struct pw_stream* stream;
    struct spa_source* timer;
    struct spa_source* refresh;
    int used; /* a consumer negotiated a format */
    uint8_t y, u, v;
};

static int connect_stream(struct source* s)
{
    uint8_t storage[1024];
    struct spa_pod_builder builder = SPA_POD_BUILDER_INIT(storage, sizeof(storage));
    const struct spa_pod* params[1];
    params[0] = spa_format_video_raw_build(&builder, SPA_PARAM_EnumFormat,
        &SPA_VIDEO_INFO_RAW_INIT(.format = SPA_VIDEO_FORMAT_YUY2, .size = SPA_RECTANGLE(WIDTH, HEIGHT),
            .framerate = SPA_FRACTION(RATE, 1)));
    s->used = 0;
    return pw_stream_connect(
        s->stream, PW_DIRECTION_OUTPUT, PW_ID_ANY, PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS, params, 1);
}

/* A consumer pauses briefly around its own start; one that stays away
 * for longer has left for good. */
static void arm_refresh(struct source* s)
{
    struct timespec grace = { 0, 300000000 };
    pw_loop_update_timer(pw_main_loop_get_loop(s->loop), s->refresh, &grace, NULL, false);
}

static void on_refresh(void* userdata, uint64_t expirations)
{
    (void)expirations;
    struct source* s = userdata;
    pw_stream_disconnect(s->stream);
    if (connect_stream(s) < 0)
        pw_main_loop_quit(s->loop);
}

static void on_process(void* userdata)
{
    struct source* s = userdata;
    struct pw_buffer* b = pw_stream_dequeue_buffer(s->stream);
    if (!b)
        return;
    struct spa_data* d = &b->buffer->datas[0];
    uint8_t* p = d->data;
    uint32_t size = WIDTH * HEIGHT * 2;
    if (p) {
        if (size > d->maxsize)
            size = d->maxsize & ~3u;
        for (uint32_t i = 0; i < size; i += 4) {
            p[i] = s->y;
            p[i + 1] = s->u;
            p[i + 2] = s->y;
            p[i + 3] = s->v;
        }
        d->chunk->offset = 0;
        d->chunk->size = size;
        d->chunk->stride = WIDTH * 2;
    }
    pw_stream_queue_buffer(s->stream, b);
}

static void on_timeout(void* userdata, uint64_t expirations)
{
    (void)expirations;
    struct source* s = userdata;
    pw_stream_trigger_process(s->stream);
}

/* The source drives itself: a timer runs while someone consumes. */
static void on_state_changed(void* userdata, enum pw_stream_state old, enum pw_stream_state state, const char* error)
{
    (void)error;
    struct source* s = userdata;
    struct pw_loop* loop = pw_main_loop_get_loop(s->loop);
    /* Tells the test that a (re)connected node awaits a consumer. */
    if (old == PW_STREAM_STATE_CONNECTING && state == PW_STREAM_STATE_PAUSED) {
        printf("ready\n");
        fflush(stdout);
    }
    if (state == PW_STREAM_STATE_STREAMING) {
        struct timespec first = { 0, 1 }, period = { 0, 1000000000 / RATE };
        pw_loop_update_timer(loop, s->timer, &first, &period, false);
        pw_loop_update_timer(loop, s->refresh, NULL, NULL, false);
    } else {
        pw_loop_update_timer(loop, s->timer, NULL, NULL, false);
        if (state == PW_STREAM_STATE_PAUSED && s->used)
            arm_refresh(s);
    }
}

static void on_param_changed(void* userdata, uint32_t id, const struct spa_pod* param)
{
    struct source* s = userdata;
    if (!param || id != SPA_PARAM_Format)
        return;
    s->used = 1;
    arm_refresh(s);
    uint8_t storage[1024];
    struct spa_pod_builder builder = SPA_POD_BUILDER_INIT(storage, sizeof(storage));
    const struct spa_pod* params[1];
    params[0] = spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
        SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(8, 2, 16), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
        SPA_PARAM_BUFFERS_size, SPA_POD_Int(WIDTH * HEIGHT * 2), SPA_PARAM_BUFFERS_stride, SPA_POD_Int(WIDTH * 2),
        SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr)));
    pw_stream_update_params(s->stream, params, 1);
}

static const struct pw_stream_events events = {
    PW_VERSION_STREAM_EVENTS,
    .state_changed = on_state_changed,
    .param_changed = on_param_changed,
    .process = on_process,
};

static void on_signal(void* userdata, int number)
{
    (void)number;
    struct source* s = userdata;
    pw_main_loop_quit(s->loop);
}

int main(int argc, char** argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: %s NODE-NAME Y U V\n", argv[0]);
        return 2;
    }
    struct source s = { 0 };
    s.y = (uint8_t)atoi(argv[2]);
    s.u = (uint8_t)atoi(argv[3]);
    s.v = (uint8_t)atoi(argv[4]);

    pw_init(&argc, &argv);
    s.loop = pw_main_loop_new(NULL);
    struct pw_loop* loop = pw_main_loop_get_loop(s.loop);
    pw_loop_add_signal(loop, SIGINT, on_signal, &s);
    pw_loop_add_signal(loop, SIGTERM, on_signal, &s);
    s.timer = pw_loop_add_timer(loop, on_timeout, &s);
    s.refresh = pw_loop_add_timer(loop, on_refresh, &s);

    struct pw_properties* props
        = pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_NODE_NAME, argv[1], NULL);
    s.stream = pw_stream_new_simple(loop, "framehub-test-source", props, &events, &s);

    if (connect_stream(&s) < 0) {
        fprintf(stderr, "pipewire_yuyv_source: can't connect the stream\n");
        return 1;
    }
    pw_main_loop_run(s.loop);

    pw_stream_destroy(s.stream);
    pw_main_loop_destroy(s.loop);
    pw_deinit();
    return 0;
}
