#include "media/gif/GIFExporter.h"

#include "media/gif/GifFrameReader.h"
#include "media/gif/GifOutputFile.h"
#include "media/gif/GifWriter.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace qm::media {

namespace {

// A range this short makes no animation.
constexpr double kShortestRange = 0.05;

// Removes the file it guards unless told to keep it: a failed or cancelled export leaves
// nothing behind.
class PartialFile {
public:
    explicit PartialFile(QString path)
        : m_path(std::move(path)) {}
    ~PartialFile() {
        if (!m_kept)
            QFile::remove(m_path);
    }
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;
    void keep() { m_kept = true; }

private:
    QString m_path;
    bool m_kept = false;
};

// Frames from the decoding thread to the encoding one: at most two wait, and their buffers
// go back to be filled again.
class FramePipe {
public:
    struct Frame {
        bool present = false;
        std::vector<std::uint8_t> pixels;
    };

    // Waits for room; false once the reading side has gone.
    bool push(const std::vector<std::uint8_t>* pixels) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_closed || m_ready.size() < kDepth; });
        if (m_closed)
            return false;
        Frame frame;
        if (!m_spare.empty()) {
            frame = std::move(m_spare.back());
            m_spare.pop_back();
        }
        frame.present = pixels != nullptr;
        if (pixels)
            frame.pixels.assign(pixels->begin(), pixels->end());
        m_ready.push_back(std::move(frame));
        m_changed.notify_all();
        return true;
    }

    Frame pop() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return !m_ready.empty(); });
        Frame frame = std::move(m_ready.front());
        m_ready.pop_front();
        m_changed.notify_all();
        return frame;
    }

    void recycle(Frame frame) {
        const std::lock_guard lock(m_mutex);
        m_spare.push_back(std::move(frame));
    }

    void close() {
        const std::lock_guard lock(m_mutex);
        m_closed = true;
        m_changed.notify_all();
    }

private:
    static constexpr std::size_t kDepth = 2;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Frame> m_ready;
    std::vector<Frame> m_spare;
    bool m_closed = false;
};

bool cancelled(const GIFExporter::Request& request) {
    return request.cancel && request.cancel->load(std::memory_order_relaxed);
}

Result<GifOutputFile> createOutput(const GIFExporter::Request& request) {
    if (const auto* folder = std::get_if<GIFExporter::IntoFolder>(&request.output))
        return createGifInFolder(folder->folder, QFileInfo(request.movie).completeBaseName());
    return createGifAt(std::get<GIFExporter::ToFile>(request.output).path);
}

} // namespace

int gifFrameCount(double seconds, double fps) {
    // The slack keeps 3 s × 15 fps at 45 frames when the seconds came out a hair short.
    const double frames = std::floor(seconds * fps + 1e-9);
    return frames < 2 ? 2 : int(std::min(frames, 1e6));
}

std::vector<int> gifFrameDelays(int frameCount, double fps) {
    std::vector<int> delays;
    delays.reserve(std::size_t(std::max(frameCount, 0)));
    long long shown = 0; // hundredths already given out
    for (int i = 1; i <= frameCount; ++i) {
        const long long due = std::llround(i * 100.0 / fps);
        delays.push_back(int(due - shown));
        shown = due;
    }
    return delays;
}

QSize gifFrameSize(QSize source, double maxDimension) {
    const int longest = std::max(source.width(), source.height());
    if (longest <= 0 || longest <= maxDimension)
        return source;
    const double scale = maxDimension / longest;
    return {std::max(1, int(std::lround(source.width() * scale))),
            std::max(1, int(std::lround(source.height() * scale)))};
}

Result<double> GIFExporter::movieDuration(const QString& movie) {
    auto reader = GifFrameReader::open(movie);
    if (!reader)
        return reader.error();
    if (const auto seconds = (*reader)->duration())
        return *seconds;
    return failure(QStringLiteral("The movie does not say how long it is"));
}

Result<QString> GIFExporter::exportRange(const Request& request) {
    const Settings& settings = request.settings;
    if (!(settings.fps > 0 && settings.fps <= 100))
        return failure(QStringLiteral("The GIF's frame rate must be above 0 and at most 100"));
    if (!(settings.maxDimension >= 1))
        return failure(QStringLiteral("The GIF's largest size must be at least one pixel"));
    if (request.range.duration && !(*request.range.duration > kShortestRange))
        return failure(tooShortMessage());
    const double start = std::max(0.0, request.range.start);

    auto opened = GifFrameReader::open(request.movie);
    if (!opened)
        return opened.error();
    GifFrameReader& reader = **opened;
    double seconds = 0;
    if (request.range.duration) {
        seconds = *request.range.duration;
    } else {
        const auto length = reader.duration();
        if (!length)
            return failure(QStringLiteral(
                "The movie does not say how long it is, so the GIF needs an end time"));
        seconds = *length - start;
        if (!(seconds > kShortestRange))
            return failure(tooShortMessage());
    }

    const int count = gifFrameCount(seconds, settings.fps);
    const std::vector<int> delays = gifFrameDelays(count, settings.fps);
    const QSize size = gifFrameSize(reader.size(), settings.maxDimension);
    if (auto started = reader.start(start, size); !started)
        return started.error();

    auto output = createOutput(request);
    if (!output)
        return output.error();
    PartialFile partial(output->path);
    auto writer = GifWriter::open(output->fd, size, request.encoding);
    if (!writer)
        return writer.error();

    // Decoding and scaling run on a thread of their own, a frame or two ahead of the palette
    // work here.
    FramePipe pipe;
    std::thread decoding([&] {
        for (int i = 0; i < count; ++i) {
            const auto* pixels = reader.frameAt(start + i / settings.fps);
            if (!pipe.push(pixels))
                return;
        }
    });
    struct Join {
        FramePipe& pipe;
        std::thread& thread;
        ~Join() {
            pipe.close();
            thread.join();
        }
    } join{pipe, decoding};

    int written = 0;
    int delay = 0; // a frame that cannot be had is left out; its time goes to the next one
    for (int i = 0; i < count; ++i) {
        if (cancelled(request))
            return failure(cancelledMessage());
        delay += delays[std::size_t(i)];
        FramePipe::Frame frame = pipe.pop();
        if (frame.present) {
            if (auto added = (*writer)->addFrame(frame.pixels.data(), delay); !added)
                return added.error();
            ++written;
            delay = 0;
        }
        pipe.recycle(std::move(frame));
        if (request.progress)
            request.progress(double(i + 1) / count);
    }
    if (written < 2)
        return failure(encodingFailedMessage());
    if (auto finished = (*writer)->finish(); !finished)
        return finished.error();
    if (cancelled(request))
        return failure(cancelledMessage());
    partial.keep();
    return output->path;
}

} // namespace qm::media
