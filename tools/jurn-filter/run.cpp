#include "run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>

#include "errors.h"

namespace tool {
namespace {

constexpr std::size_t kReadFrames = 1024;

volatile std::sig_atomic_t interrupted = 0;

extern "C" void on_signal(int) {
  interrupted = 1;
}

/** Passes frames through all stages and leaves the result in `frames`. */
void push_through(const Chain& chain, std::vector<float>* frames, std::vector<float>* spare) {
  for (const std::unique_ptr<Stage>& stage : chain) {
    spare->clear();
    stage->push(frames->data(), frames->size() / static_cast<std::size_t>(stage->channels_in),
                spare);
    frames->swap(*spare);
  }
}

/** Streams the whole recording; `writer` may be null to measure only. */
void stream(const Job& job, AudioReader* reader, const Chain& chain, AudioWriter* writer,
            Summary* summary) {
  const std::size_t channels_in = static_cast<std::size_t>(reader->channels());
  const std::size_t channels_out = static_cast<std::size_t>(chain.back()->channels_out);
  std::int64_t latency = 0, tail = 0;
  for (const std::unique_ptr<Stage>& stage : chain) {
    latency += stage->latency;
    tail += stage->tail;
  }
  std::int64_t skip = job.keep_latency ? 0 : latency;
  std::int64_t total = 0;  // frames of the result, known so far
  bool at_end = false;
  std::vector<float> frames, spare;
  while (!at_end || summary->frames < total) {
    check_interrupted();
    frames.assign(kReadFrames * channels_in, 0.0f);
    if (!at_end) {
      const std::size_t got = reader->read(frames.data(), kReadFrames);
      total += static_cast<std::int64_t>(got);
      if (got < kReadFrames) {
        at_end = true;
        if (job.keep_tail) total += tail + (job.keep_latency ? latency : 0);
      }
    }
    push_through(chain, &frames, &spare);

    const std::int64_t produced = static_cast<std::int64_t>(frames.size() / channels_out);
    const std::int64_t first = std::min(skip, produced);
    const std::int64_t count = std::min(produced - first, total - summary->frames);
    skip -= first;
    const float* begin = frames.data() + static_cast<std::size_t>(first) * channels_out;
    const float* end = begin + static_cast<std::size_t>(count) * channels_out;
    float peak = 0.0f;
    for (const float* x = begin; x != end; ++x) peak = std::max(peak, std::abs(*x));
    summary->peak = std::max(summary->peak, static_cast<double>(peak));
    if (writer) writer->write(begin, static_cast<std::size_t>(count));
    summary->frames += count;
  }
  if (writer) summary->clipped += writer->clipped();
  for (const std::unique_ptr<Stage>& stage : chain) {
    summary->clipped += stage->clipped;
    summary->input_clipped += stage->input_clipped;
  }
  summary->not_finite = reader->not_finite();
}

double linear(double db) {
  return std::pow(10.0, db / 20.0);
}

/** Finds the gain at which nothing clips, from another run of the job at a gain so low that the
 * result shows its true peak. */
void find_fitting_gain(const Job& job, Summary* summary) {
  for (double gain = 1.0 / 64.0; gain > 1e-9; gain /= 64.0) {
    AudioReader reader(job.input, 2);
    Summary quiet;
    stream(job, &reader, job.make_chain(reader, gain * linear(job.gain_db)), nullptr, &quiet);
    if (quiet.clipped || quiet.peak >= 32767.0) continue;
    const double peak = (quiet.peak + 1.0) / gain;  // samples were truncated
    const double change = 20.0 * std::log10(32767.0 / peak);
    summary->too_loud = change < 0.0;
    summary->fitting_gain_db = std::floor((job.gain_db + change) * 10.0) / 10.0;
    return;
  }
}

}  // namespace

Summary run(const Job& job) {
  AudioReader reader(job.input, 2);
  std::vector<std::string> inputs = job.also_read;
  inputs.push_back(job.input);
  refuse_overwrite(job.output, inputs);
  Chain chain = job.make_chain(reader, linear(job.gain_db));

  Summary summary;
  summary.output = job.output;
  summary.channels = chain.back()->channels_out;
  summary.rate = reader.rate();
  AudioWriter writer(job.output, summary.channels, summary.rate, job.format);
  const auto start = std::chrono::steady_clock::now();
  stream(job, &reader, chain, &writer, &summary);
  summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  writer.commit();
  if (summary.clipped) find_fitting_gain(job, &summary);
  return summary;
}

void print(const Summary& s) {
  const double duration = static_cast<double>(s.frames) / s.rate;
  std::printf("%s\n", s.output.c_str());
  std::printf("  length   %.3f s, %lld frames, %d channel%s, %d Hz\n", duration,
              static_cast<long long>(s.frames), s.channels, s.channels == 1 ? "" : "s", s.rate);
  if (s.peak > 0.0)
    std::printf("  peak     %.10g, %.1f dBFS\n", s.peak, 20.0 * std::log10(s.peak / 32768.0));
  else
    std::printf("  peak     0, silence\n");
  std::printf("  clipped  %lld samples", static_cast<long long>(s.clipped));
  if (s.too_loud) std::printf("; a gain of %.1f dB would avoid it", s.fitting_gain_db);
  std::printf("\n");
  if (s.input_clipped)
    std::printf("  input    %lld samples beyond full scale were limited\n",
                static_cast<long long>(s.input_clipped));
  if (s.not_finite)
    std::printf("  input    %lld samples that are no finite numbers were read as silence\n",
                static_cast<long long>(s.not_finite));
  std::printf("  speed    %.0f times faster than real time\n", duration / s.seconds);
}

void catch_interruptions() {
  std::signal(SIGINT, on_signal);
  std::signal(SIGTERM, on_signal);
  // A file-size limit then fails the write instead of killing the program.
  std::signal(SIGXFSZ, SIG_IGN);
}

void check_interrupted() {
  if (interrupted) throw Error(kInterrupted, "interrupted");
}

}  // namespace tool
