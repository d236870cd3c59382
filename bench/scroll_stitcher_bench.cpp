// Speed, memory and quality of the scroll stitcher on captures of real size.
// Targets: append of a 1600 x 1200 frame <= 4 ms (median), 3840 x 2000 <= 12 ms,
// compose of 1600 x 24000 <= 150 ms, and the peak memory of a 24000-row capture
// made of 100-row steps under 2.2 x (result + two frames). Each of these runs
// twice: with the default image allocator (plain QImages on the heap) and, as
// onHugePages, with the one the X11 platform installs. The reusingMemory runs
// repeat append and compose with memory the heap has handed out before, which
// separates their own work from the cost of first-touching pages. The quality
// runs count how frames of synthetic documents and of terminal text are aligned.

#include "image/ImageMemory.h"
#include "platform/x11/HugePageImages.h"
#include "scroll/ScrollStitcher.h"

#include "../tests/scroll/ScrollScenario.h"
#include "../tests/scroll/TerminalDocument.h"

#include <benchmark/benchmark.h>

#include <QGuiApplication>

#include <malloc.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <limits>
#include <map>
#include <string>

namespace {

using namespace pixmora;
using Kind = AppendResult::Kind;
using synthetic::DocumentStyle;
using synthetic::TerminalText;

constexpr qint64 kCaptureLimit = 24000;

// Wall and thread CPU time of each timed call, for medians that pauses and
// restarts do not blur. On a loaded machine the CPU time is the steadier figure.
class CallTimes {
public:
    template<typename Call>
    auto time(Call &&call)
    {
        const double wallStart = now(CLOCK_MONOTONIC);
        const double cpuStart = now(CLOCK_THREAD_CPUTIME_ID);
        auto result = call();
        m_cpu.push_back(now(CLOCK_THREAD_CPUTIME_ID) - cpuStart);
        m_wall.push_back(now(CLOCK_MONOTONIC) - wallStart);
        return result;
    }

    void report(benchmark::State &state)
    {
        if (m_wall.empty())
            return;
        state.counters["median_ms"] = median(m_wall);
        state.counters["median_cpu_ms"] = median(m_cpu);
    }

private:
    static double now(clockid_t clock)
    {
        timespec time{};
        clock_gettime(clock, &time);
        return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
    }

    static double median(std::vector<double> &milliseconds)
    {
        std::nth_element(milliseconds.begin(), milliseconds.begin() + long(milliseconds.size() / 2), milliseconds.end());
        return milliseconds[milliseconds.size() / 2];
    }

    std::vector<double> m_wall;
    std::vector<double> m_cpu;
};

// A text-and-pictures document of the given width, made once per width.
const QImage &variedDocument(int width, int height)
{
    static std::map<std::pair<int, int>, QImage> documents;
    QImage &document = documents[{width, height}];
    if (document.isNull()) {
        std::mt19937 random(static_cast<std::uint32_t>(width));
        document = synthetic::makeDocument(width, height, 1200, DocumentStyle::varied, random);
    }
    return document;
}

// A document of any length that is never held whole: row r repeats one of a
// few hundred rows of noise, picked by a hash of r.
class EndlessDocument {
public:
    explicit EndlessDocument(int width)
    {
        std::mt19937 random(5);
        m_rows = synthetic::makeNoise(width, 509, random);
    }

    QImage frame(qint64 top, int height) const
    {
        QImage frame(m_rows.width(), height, QImage::Format_RGB32);
        for (int y = 0; y < height; ++y)
            std::memcpy(frame.scanLine(y), m_rows.constScanLine(rowAt(top + y)), std::size_t(m_rows.bytesPerLine()));
        return frame;
    }

private:
    int rowAt(qint64 row) const
    {
        std::uint64_t mixed = std::uint64_t(row) * 0x9e3779b97f4a7c15ULL;
        mixed ^= mixed >> 31;
        return int(mixed % std::uint64_t(m_rows.height()));
    }

    QImage m_rows;
};

qint64 statusKilobytes(const char *field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(field) + ":";
    while (std::getline(status, line)) {
        if (line.rfind(prefix, 0) == 0)
            return std::stoll(line.substr(prefix.size()));
    }
    return -1;
}

// Peak resident memory of a whole capture: 1600 x 1200 frames, 100 rows apart,
// until the 24000-row limit, then composed. Each frame is made, appended and
// dropped in turn, as the capture session does.
void captureMemory(benchmark::State &state)
{
    const EndlessDocument document(1600);
    for (auto _ : state) {
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << "5"; // restart the peak (VmHWM) from here
        const qint64 baseline = statusKilobytes("VmRSS");
        qint64 resultBytes = 0;
        {
            const auto stitcher = ScrollStitcher::create(document.frame(0, 1200), kCaptureLimit);
            Kind kind = Kind::appended;
            for (qint64 top = 100; kind == Kind::appended; top += 100)
                kind = stitcher->append(document.frame(top, 1200)).kind;
            if (kind != Kind::limitReached) {
                state.SkipWithError("the capture did not align");
                return;
            }
            const QImage composed = stitcher->compose();
            resultBytes = composed.sizeInBytes();
        }
        const qint64 peak = statusKilobytes("VmHWM");
        if (baseline < 0 || peak < 0) {
            state.SkipWithError("no /proc/self/status");
            return;
        }
        const double peakBytes = double(peak - baseline) * 1024;
        const double frameBytes = 1600.0 * 1200 * 4;
        state.counters["peak_MB"] = peakBytes / 1e6;
        state.counters["bound_MB"] = 2.2 * (double(resultBytes) + 2 * frameBytes) / 1e6;
        state.counters["peak_per_result_and_two_frames"] = peakBytes / (double(resultBytes) + 2 * frameBytes);
    }
}
// The same work with large images on huge pages, as the X11 platform has it.
template<typename... Sizes>
void onHugePages(benchmark::State &state, void (*run)(benchmark::State &, Sizes...), Sizes... sizes)
{
    setImageAllocator(allocateHugePageImage);
    run(state, sizes...);
    setImageAllocator(nullptr);
}

// Registered first, so that no earlier benchmark has left freed memory behind to reuse.
BENCHMARK(captureMemory)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(onHugePages, captureMemory, captureMemory)->Unit(benchmark::kMillisecond)->Iterations(1);

// Frames scrolled down a text-and-pictures page by random shifts up to the
// largest the stitcher tries; the stitcher starts afresh (untimed) at the bottom.
void appendRandomShift(benchmark::State &state, int width, int height)
{
    const QImage &document = variedDocument(width, height * 10);
    std::mt19937 random(11);
    std::uniform_int_distribution<int> shifts(1, synthetic::largestShift(height));
    std::unique_ptr<ScrollStitcher> stitcher;
    int top = 0;
    qint64 appends = 0;
    qint64 aligned = 0;
    CallTimes times;
    for (auto _ : state) {
        const int shift = shifts(random);
        if (!stitcher || top + shift + height > document.height()) {
            state.PauseTiming();
            top = 0;
            stitcher = ScrollStitcher::create(synthetic::frameAt(document, 0, height), kCaptureLimit);
            state.ResumeTiming();
        }
        top += shift;
        const QImage frame = synthetic::frameAt(document, top, height);
        const AppendResult result = times.time([&] { return stitcher->append(frame); });
        ++appends;
        aligned += result.kind == Kind::appended && result.rows == shift;
    }
    times.report(state);
    state.counters["aligned"] = double(aligned) / double(std::max<qint64>(appends, 1));
}

BENCHMARK_CAPTURE(appendRandomShift, 1600x1200, 1600, 1200)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(onHugePages, append_1600x1200, appendRandomShift, 1600, 1200)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(appendRandomShift, 3840x2000, 3840, 2000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(onHugePages, append_3840x2000, appendRandomShift, 3840, 2000)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The matching alone: each frame has moved past the reach of the search, so
// append computes the signature and runs both searches but copies nothing.
void matchOnly(benchmark::State &state, int width, int height)
{
    const QImage &document = variedDocument(width, height * 10);
    const auto stitcher = ScrollStitcher::create(synthetic::frameAt(document, 0, height), kCaptureLimit);
    std::mt19937 random(13);
    std::uniform_int_distribution<int> tops(height, document.height() - height);
    CallTimes times;
    qint64 refused = 0;
    for (auto _ : state) {
        const QImage frame = synthetic::frameAt(document, tops(random), height);
        refused += times.time([&] { return stitcher->append(frame); }).kind == Kind::noMatch;
    }
    times.report(state);
    state.counters["refused"] = double(refused) / double(state.iterations());
}

BENCHMARK_CAPTURE(matchOnly, 1600x1200, 1600, 1200)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(matchOnly, 3840x2000, 3840, 2000)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void compose1600x24000(benchmark::State &state)
{
    const EndlessDocument document(1600);
    const auto stitcher = ScrollStitcher::create(document.frame(0, 1200), kCaptureLimit);
    for (qint64 top = 1000; stitcher->totalHeight() < kCaptureLimit; top += 1000) {
        if (stitcher->append(document.frame(top, 1200)).kind == Kind::noMatch) {
            state.SkipWithError("the capture did not align");
            return;
        }
    }
    CallTimes times;
    for (auto _ : state) {
        const QImage composed = times.time([&] { return stitcher->compose(); });
        benchmark::DoNotOptimize(composed.constBits());
    }
    times.report(state);
}
BENCHMARK(compose1600x24000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(onHugePages, compose_1600x24000, compose1600x24000)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// Synthetic documents scrolled at capture size: how many captures come out
// exactly, and how many frames are accepted, refused or misread.
void quality(benchmark::State &state, DocumentStyle style)
{
    std::mt19937 random(23);
    std::vector<QImage> documents;
    for (int index = 0; index < 2; ++index)
        documents.push_back(synthetic::makeDocument(1600, 6000, 1200, style, random));
    synthetic::ScrollTally tally;
    std::vector<std::string> faults;
    for (auto _ : state) {
        for (const QImage &document : documents) {
            for (int frameHeight : {600, 900, 1200})
                tally.add(synthetic::scrollThrough(document, frameHeight, kCaptureLimit, random, faults));
        }
    }
    if (!faults.empty())
        state.SkipWithError(faults.front().c_str());
    state.counters["cases"] = tally.cases;
    state.counters["cases_exact"] = tally.casesExact;
    state.counters["frames"] = tally.frames;
    state.counters["accepted"] = tally.framesAccepted;
    state.counters["refused"] = tally.framesRefused;
    state.counters["misread"] = tally.framesMisaligned;
    state.SetLabel(tally.summary());
}
BENCHMARK_CAPTURE(quality, varied, DocumentStyle::varied)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(quality, blank_stretches, DocumentStyle::blankStretches)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(quality, stripes, DocumentStyle::stripes)->Unit(benchmark::kMillisecond)->Iterations(1);

// Terminal output at the size of a real xterm (720 x 800, 20-pixel lines):
// twelve frames scrolled a wheel notch (5 lines) each, then captures at random
// shifts. Reports what became of the notched frames and whether the page is
// exact, and how many randomly shifted frames were accepted, refused or misread.
void terminalQuality(benchmark::State &state, TerminalText text)
{
    std::mt19937 random(29);
    const QImage document = synthetic::renderTerminal(synthetic::terminalLines(text, 400, random));
    std::vector<int> tops;
    for (int notch = 1; notch <= 12; ++notch)
        tops.push_back(notch * synthetic::kWheelNotch);
    synthetic::StepRun notches;
    synthetic::ScrollTally shifts;
    std::vector<std::string> faults;
    for (auto _ : state) {
        notches = synthetic::scrollInSteps(document, synthetic::kTerminalFrameHeight, tops);
        for (int run = 0; run < 4; ++run)
            shifts.add(synthetic::scrollThrough(document, synthetic::kTerminalFrameHeight, kCaptureLimit, random, faults));
    }
    for (const auto &[name, kind] : {std::pair{"appended", Kind::appended}, {"noMovement", Kind::noMovement}, {"noMatch", Kind::noMatch}})
        state.counters[name] = double(std::count(notches.kinds.begin(), notches.kinds.end(), kind));
    state.counters["exact"] = notches.exact;
    state.counters["shifted"] = shifts.frames;
    state.counters["shifted_accepted"] = shifts.framesAccepted;
    state.counters["shifted_refused"] = shifts.framesRefused;
    state.counters["shifted_misread"] = shifts.framesMisaligned;
    state.counters["faults"] = double(faults.size());
}
BENCHMARK_CAPTURE(terminalQuality, numbers, TerminalText::numbers)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(terminalQuality, numbered_lines, TerminalText::numberedLines)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(terminalQuality, service_log, TerminalText::serviceLog)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(terminalQuality, prose, TerminalText::prose)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(terminalQuality, code, TerminalText::code)->Unit(benchmark::kMillisecond)->Iterations(1);

// The same work once the allocator hands out memory that earlier work freed:
// what remains is the copying, not the first touch of new pages, which some
// virtual machines make very slow (12 us and more per 4 KiB page).
template<typename... Sizes>
void reusingMemory(benchmark::State &state, void (*run)(benchmark::State &, Sizes...), Sizes... sizes)
{
    mallopt(M_MMAP_MAX, 0); // every block from the heap, so that freed ones are reused
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    run(state, sizes...);
}
BENCHMARK_CAPTURE(reusingMemory, append_1600x1200, appendRandomShift, 1600, 1200)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(reusingMemory, append_3840x2000, appendRandomShift, 3840, 2000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK_CAPTURE(reusingMemory, compose_1600x24000, compose1600x24000)->Unit(benchmark::kMillisecond)->MinTime(2.0);

} // namespace

// Terminal documents are rendered with Qt's fonts, which need a GUI application.
int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
