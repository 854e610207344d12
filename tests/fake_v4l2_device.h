#ifndef FRAMEHUB_TESTS_FAKE_V4L2_DEVICE_H
#define FRAMEHUB_TESTS_FAKE_V4L2_DEVICE_H

#include "v4l2/device_io.h"

#include <framehub/frame_hub_type.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <iterator>
#include <linux/videodev2.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <set>
#include <string>
#include <sys/mman.h>
#include <vector>

// A capture device that speaks the calls the back-end uses, with faults on
// demand. Frames are YUYV bytes of (sequence + offset) or, for MJPEG, the
// bytes the test hands in; each is stamped with the fake monotonic clock.
class FakeV4L2Device : public Kelmo::FrameHub::DeviceIo {
public:
    typedef Kelmo::FrameHub::Resolution Resolution;
    struct Control {
        v4l2_queryctrl query;
        int32_t value;
        std::set<int32_t> menu;
    };

    // What the device offers and how it behaves; tests change these.
    std::map<uint32_t, std::vector<Resolution>> formats { { V4L2_PIX_FMT_YUYV, { { 320, 240 }, { 640, 480 } } } };
    std::vector<int> rates { 15, 30 };
    std::map<Resolution, Resolution> adjust; // S_FMT answers this size instead
    uint32_t caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    bool present = true;
    uint32_t padding = 0; // bytes past each YUYV row
    uint32_t stampFlags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    int64_t frameAge = 2000; // stamp = clock - age, microseconds
    std::vector<uint8_t> jpeg; // MJPEG frame content
    size_t jpegCut = 0; // when non-zero, the next MJPEG frame is cut to this many bytes
    int64_t clock = 1000000000;
    bool recordCalls = true; // off in benchmarks: only the protocol's own cost
    bool fillFrames = true;
    std::map<uint32_t, Control> controls;

    // Faults: the next `count` calls of a request (0 for poll) fail with `error`.
    void fail(unsigned long request, int error, int count = 1) { _faults[request].push_back({ error, count }); }
    int spuriousWakeups = 0; // polls that report ready with nothing queued
    int corruptFrames = 0; // next frames flagged as errors
    int pollTimeouts = 0;

    // Pulled plug: open fails, every call on an open descriptor gives ENODEV.
    bool unplugged = false;

    // Fills queued buffers with frames, oldest first.
    void deliver(int count)
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _deliver(count);
    }

    std::vector<std::string> calls;
    int openDescriptors = 0, mapped = 0;
    unsigned requested = 0; // buffers asked for by the last REQBUFS
    uint32_t pixelFormat = 0;
    Resolution size;
    unsigned sequence = 0;
    size_t queued() const
    {
        return std::count_if(_buffers.begin(), _buffers.end(), [](const Buffer& b) { return b.queued; });
    }
    size_t buffers() const { return _buffers.size(); }

    void addControl(uint32_t id, int32_t minimum, int32_t maximum, int32_t value,
        uint32_t type = V4L2_CTRL_TYPE_INTEGER, std::set<int32_t> menu = {})
    {
        controls[id] = Control { { id, type, {}, minimum, maximum, 1, value, 0, {} }, value, menu };
    }

    int open(const char*, int) override
    {
        std::lock_guard<std::mutex> lock(_mutex);
        calls.push_back("open");
        if (!present || unplugged)
            return error(ENOENT);
        ++openDescriptors;
        return 3;
    }

    int close(int) override
    {
        std::lock_guard<std::mutex> lock(_mutex);
        calls.push_back("close");
        --openDescriptors;
        _stream = false;
        _buffers.clear();
        return 0;
    }

    void* mmap(size_t length, int, off_t offset) override
    {
        std::lock_guard<std::mutex> lock(_mutex);
        const size_t index = static_cast<size_t>(offset) / kStride;
        if (unplugged || index >= _buffers.size() || length != _buffers[index].memory.size()) {
            errno = unplugged ? ENODEV : EINVAL;
            return MAP_FAILED;
        }
        ++mapped;
        return _buffers[index].memory.data();
    }

    int munmap(void*, size_t) override
    {
        std::lock_guard<std::mutex> lock(_mutex);
        --mapped;
        return 0;
    }

    int poll(int, int timeoutMs, short* events) override
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (recordCalls)
            calls.push_back("poll");
        *events = 0;
        if (int e = fault(0))
            return error(e);
        if (unplugged) {
            *events = POLLERR;
            return 1;
        }
        if (spuriousWakeups > 0) {
            --spuriousWakeups;
            *events = POLLIN;
            return 1;
        }
        if (_ready.empty() && pollTimeouts == 0 && _stream)
            _deliver(1);
        if (_ready.empty()) {
            pollTimeouts = pollTimeouts > 0 ? pollTimeouts - 1 : 0;
            clock += static_cast<int64_t>(timeoutMs) * 1000;
            return 0;
        }
        *events = POLLIN;
        return 1;
    }

    int64_t monotonicMicroseconds() override { return clock; }

    int ioctl(int, unsigned long request, void* arg) override
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (recordCalls && request != VIDIOC_QUERYCTRL && request != VIDIOC_QUERYMENU)
            calls.push_back(name(request));
        if (int e = fault(request))
            return error(e);
        if (unplugged)
            return error(ENODEV);
        switch (request) {
        case VIDIOC_QUERYCAP: {
            v4l2_capability* c = static_cast<v4l2_capability*>(arg);
            std::memset(c, 0, sizeof(*c));
            std::strcpy(reinterpret_cast<char*>(c->card), "Fake camera");
            c->capabilities = caps | V4L2_CAP_DEVICE_CAPS;
            c->device_caps = caps;
            return 0;
        }
        case VIDIOC_ENUM_FMT: {
            v4l2_fmtdesc* d = static_cast<v4l2_fmtdesc*>(arg);
            if (d->index >= formats.size())
                return error(EINVAL);
            d->pixelformat = std::next(formats.begin(), d->index)->first;
            return 0;
        }
        case VIDIOC_ENUM_FRAMESIZES: {
            v4l2_frmsizeenum* s = static_cast<v4l2_frmsizeenum*>(arg);
            const auto it = formats.find(s->pixel_format);
            if (it == formats.end() || s->index >= it->second.size())
                return error(EINVAL);
            s->type = V4L2_FRMSIZE_TYPE_DISCRETE;
            s->discrete.width = static_cast<uint32_t>(it->second[s->index].width);
            s->discrete.height = static_cast<uint32_t>(it->second[s->index].height);
            return 0;
        }
        case VIDIOC_ENUM_FRAMEINTERVALS: {
            v4l2_frmivalenum* f = static_cast<v4l2_frmivalenum*>(arg);
            if (f->index >= rates.size())
                return error(EINVAL);
            f->type = V4L2_FRMIVAL_TYPE_DISCRETE;
            f->discrete.numerator = 1;
            f->discrete.denominator = static_cast<uint32_t>(rates[f->index]);
            return 0;
        }
        case VIDIOC_S_FMT: {
            v4l2_format* f = static_cast<v4l2_format*>(arg);
            if (_stream || !_buffers.empty())
                return error(EBUSY);
            Resolution r(f->fmt.pix.width, f->fmt.pix.height);
            if (adjust.count(r))
                r = adjust[r];
            if (!formats.count(f->fmt.pix.pixelformat))
                f->fmt.pix.pixelformat = formats.begin()->first;
            f->fmt.pix.width = static_cast<uint32_t>(r.width);
            f->fmt.pix.height = static_cast<uint32_t>(r.height);
            f->fmt.pix.bytesperline = static_cast<uint32_t>(r.width * 2 + padding);
            f->fmt.pix.sizeimage = f->fmt.pix.bytesperline * f->fmt.pix.height;
            pixelFormat = f->fmt.pix.pixelformat;
            size = r;
            return 0;
        }
        case VIDIOC_G_FMT: {
            v4l2_format* f = static_cast<v4l2_format*>(arg);
            f->fmt.pix.width = static_cast<uint32_t>(size.width);
            f->fmt.pix.height = static_cast<uint32_t>(size.height);
            f->fmt.pix.pixelformat = pixelFormat;
            return 0;
        }
        case VIDIOC_G_PARM:
        case VIDIOC_S_PARM: {
            v4l2_streamparm* p = static_cast<v4l2_streamparm*>(arg);
            p->parm.capture.capability = V4L2_CAP_TIMEPERFRAME;
            if (request == VIDIOC_G_PARM)
                p->parm.capture.timeperframe = { 1, 30 };
            return 0;
        }
        case VIDIOC_REQBUFS: {
            v4l2_requestbuffers* r = static_cast<v4l2_requestbuffers*>(arg);
            if (_stream)
                return error(EBUSY);
            if (r->count > 0)
                requested = r->count;
            _buffers.assign(r->count, Buffer());
            for (Buffer& b : _buffers)
                b.memory.assign((size.width * 2 + padding) * size.height, 0);
            _ready.clear();
            return 0;
        }
        case VIDIOC_QUERYBUF: {
            v4l2_buffer* b = static_cast<v4l2_buffer*>(arg);
            if (b->index >= _buffers.size())
                return error(EINVAL);
            b->length = static_cast<uint32_t>(_buffers[b->index].memory.size());
            b->m.offset = b->index * kStride;
            return 0;
        }
        case VIDIOC_QBUF: {
            v4l2_buffer* b = static_cast<v4l2_buffer*>(arg);
            if (b->index >= _buffers.size() || _buffers[b->index].queued)
                return error(EINVAL);
            _buffers[b->index].queued = true;
            _free.push_back(b->index);
            return 0;
        }
        case VIDIOC_DQBUF: {
            if (_ready.empty())
                return error(EAGAIN);
            *static_cast<v4l2_buffer*>(arg) = _ready.front();
            _ready.pop_front();
            return 0;
        }
        case VIDIOC_STREAMON:
            _stream = true;
            return 0;
        case VIDIOC_STREAMOFF:
            _stream = false;
            _ready.clear();
            _free.clear();
            for (Buffer& b : _buffers)
                b.queued = false;
            return 0;
        case VIDIOC_QUERYCTRL: {
            v4l2_queryctrl* q = static_cast<v4l2_queryctrl*>(arg);
            if (!controls.count(q->id))
                return error(EINVAL);
            *q = controls[q->id].query;
            return 0;
        }
        case VIDIOC_QUERYMENU: {
            v4l2_querymenu* m = static_cast<v4l2_querymenu*>(arg);
            return controls.count(m->id) && controls[m->id].menu.count(static_cast<int32_t>(m->index)) ? 0
                                                                                                       : error(EINVAL);
        }
        case VIDIOC_G_CTRL:
        case VIDIOC_S_CTRL: {
            v4l2_control* c = static_cast<v4l2_control*>(arg);
            if (!controls.count(c->id))
                return error(EINVAL);
            if (request == VIDIOC_G_CTRL)
                c->value = controls[c->id].value;
            else
                controls[c->id].value = c->value;
            return 0;
        }
        }
        return error(ENOTTY);
    }

private:
    static const size_t kStride = 1 << 24;
    struct Buffer {
        std::vector<uint8_t> memory;
        bool queued = false;
    };
    struct Fault {
        int error;
        int count;
    };

    static int error(int e)
    {
        errno = e;
        return -1;
    }

    int fault(unsigned long request)
    {
        std::vector<Fault>& list = _faults[request];
        if (list.empty())
            return 0;
        const int e = list.front().error;
        if (--list.front().count == 0)
            list.erase(list.begin());
        return e;
    }

    static std::string name(unsigned long request)
    {
        static const std::map<unsigned long, std::string> names
            = { { VIDIOC_QUERYCAP, "QUERYCAP" }, { VIDIOC_S_FMT, "S_FMT" }, { VIDIOC_S_PARM, "S_PARM" },
                  { VIDIOC_REQBUFS, "REQBUFS" }, { VIDIOC_QUERYBUF, "QUERYBUF" }, { VIDIOC_QBUF, "QBUF" },
                  { VIDIOC_DQBUF, "DQBUF" }, { VIDIOC_STREAMON, "STREAMON" }, { VIDIOC_STREAMOFF, "STREAMOFF" } };
        const auto it = names.find(request);
        return it == names.end() ? "other" : it->second;
    }

    void _deliver(int count)
    {
        for (int i = 0; i < count && !_free.empty(); ++i) {
            const unsigned index = _free.front();
            _free.pop_front();
            Buffer& buffer = _buffers[index];
            buffer.queued = false;
            ++sequence;
            v4l2_buffer b {};
            b.index = index;
            b.flags = stampFlags;
            if (corruptFrames > 0) {
                --corruptFrames;
                b.flags |= V4L2_BUF_FLAG_ERROR;
            }
            b.sequence = sequence;
            const int64_t stamp = clock - frameAge;
            b.timestamp.tv_sec = stamp / 1000000;
            b.timestamp.tv_usec = stamp % 1000000;
            b.bytesused = static_cast<uint32_t>(buffer.memory.size());
            if (pixelFormat == V4L2_PIX_FMT_MJPEG) {
                const size_t n = std::min(jpegCut ? jpegCut : jpeg.size(), buffer.memory.size());
                std::memcpy(buffer.memory.data(), jpeg.data(), n);
                b.bytesused = static_cast<uint32_t>(n);
                jpegCut = 0;
            } else if (fillFrames) {
                for (size_t k = 0; k < buffer.memory.size(); ++k)
                    buffer.memory[k] = static_cast<uint8_t>(sequence + k);
            }
            _ready.push_back(b);
        }
    }

    std::mutex _mutex;
    std::map<unsigned long, std::vector<Fault>> _faults;
    std::vector<Buffer> _buffers;
    std::deque<unsigned> _free; // queued, oldest first
    std::deque<v4l2_buffer> _ready;
    bool _stream = false;
};

#endif
