#include "recordings/run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

#include "recordings/signals.h"
#include "units.h"

namespace jurn {
namespace {

// A pipe may be live: what comes soon goes on soon.
constexpr std::size_t kPipeFrames = 1024, kFileFrames = 8192;

/** The largest magnitude. Those of numbers are in the order of their bits, which the compiler
 * compares in vectors. */
float peak_of(const std::vector<float>& samples) {
  std::int32_t largest = 0;
  for (const float x : samples) {
    std::int32_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    bits &= 0x7FFFFFFF;
    largest = largest < bits ? bits : largest;
  }
  float peak;
  std::memcpy(&peak, &largest, sizeof peak);
  return peak;
}

/** Passes frames through all stages and leaves the result in `frames`. */
void push_through(const Chain& chain, bool at_end, std::vector<float>* frames,
                  std::vector<float>* spare) {
  for (const std::unique_ptr<Stage>& stage : chain) {
    spare->clear();
    stage->push(frames->data(), frames->size() / static_cast<std::size_t>(stage->channels_in),
                spare);
    if (at_end) stage->finish(spare);
    frames->swap(*spare);
  }
}

/** Streams the whole recording; `writer` may be null to measure only. */
void stream(const Job& job, const std::string& what, AudioReader* reader, const Chain& chain,
            AudioWriter* writer, Summary* summary) {
  const std::size_t channels_in = static_cast<std::size_t>(reader->channels());
  const std::size_t channels_out = static_cast<std::size_t>(chain.back()->channels_out);
  std::vector<float> frames, spare;
  std::int64_t frames_read = 0;
  const std::size_t piece = reader->frames() ? kFileFrames : kPipeFrames;
  for (bool at_end = false; !at_end;) {
    check_interrupted();
    frames.resize(piece * channels_in);
    const std::size_t got = reader->read(frames.data(), piece);
    frames.resize(got * channels_in);
    at_end = got < piece;
    frames_read += static_cast<std::int64_t>(got);
    push_through(chain, at_end, &frames, &spare);

    summary->peak = std::max(summary->peak, static_cast<double>(peak_of(frames)));
    if (writer) writer->write(frames.data(), frames.size() / channels_out);
    summary->frames += static_cast<std::int64_t>(frames.size() / channels_out);
    if (job.on_progress) job.on_progress({what, frames_read, reader->frames(), reader->rate()});
  }
  for (const std::unique_ptr<Stage>& stage : chain) {
    summary->clipped += stage->clipped;
    (stage == chain[0] ? summary->input_clipped : summary->clipped) += stage->input_clipped;
    if (stage->lost_after >= 0 && !summary->lost_after)
      summary->lost_after = static_cast<double>(stage->lost_after) / reader->rate();
  }
  summary->not_finite = reader->not_finite();
}

Recording describe(const Job& job, const AudioReader& reader) {
  return {job.input, reader.channels(), reader.rate(), reader.frames(),
          job.bits.value_or(reader.samples())};
}

/** The gain at which a result of this peak does not clip. */
void fit_gain(const Job& job, double peak, Summary* summary) {
  const double change = to_decibels(32767.0 / peak);
  if (change < 0.0) summary->fitting_gain_db = std::floor((job.gain_db + change) * 10.0) / 10.0;
}

void unlock(const Job& job) {
  if (job.lock) job.lock->unlock();
}

/** Finds the true peak from another run of the job at a gain so low that nothing clips. */
void find_fitting_gain(const Job& job, Summary* summary) {
  for (double gain = 1.0 / 64.0; gain > 1e-9; gain /= 64.0) {
    if (job.lock) job.lock->lock();
    AudioReader reader(job.input, kMaxChannels, job.raw);
    const Chain chain = job.make_chain(describe(job, reader), gain * from_decibels(job.gain_db));
    unlock(job);
    Summary quiet;
    stream(job, "finding a gain that fits", &reader, chain, nullptr, &quiet);
    if (quiet.clipped || quiet.peak >= 32767.0) continue;
    return fit_gain(job, (quiet.peak + 1.0) / gain, summary);  // samples were truncated
  }
}

/** What the result is written as, and where dither goes. */
AudioFormat choose_format(const Job& job, SampleFormat samples, const Chain& chain,
                          Summary* summary) {
  AudioFormat format = job.format;
  for (const std::unique_ptr<Stage>& stage : chain) {
    if (!stage->is_int16 || samples == SampleFormat::kInt16) continue;
    if (job.dither) stage->dither = std::make_unique<Dither>(*job.dither);
    summary->narrowed = "this filter works in 16 bits, the recording has more";
    samples = SampleFormat::kInt16;
  }
  format.samples = job.bits.value_or(samples);
  format.narrower = !job.bits;
  if (samples != SampleFormat::kInt16 || !chain.back()->is_int16) format.dither = job.dither;
  return format;
}

}  // namespace

Summary run(const Job& job) {
  AudioReader reader(job.input, kMaxChannels, job.raw);
  std::vector<std::string> inputs = job.also_read;
  inputs.push_back(job.input);
  refuse_overwrite(job.output, inputs);
  const Chain chain = job.make_chain(describe(job, reader), from_decibels(job.gain_db));

  Summary summary;
  summary.input = job.input;
  summary.output = job.output;
  summary.gain_of = job.gain_of;
  summary.dithered = job.dither.has_value();
  summary.channels = chain.back()->channels_out;
  summary.rate = reader.rate();
  bool clipped_inside;
  const auto start = std::chrono::steady_clock::now();
  {
    const AudioFormat format = choose_format(job, reader.samples(), chain, &summary);
    AudioWriter writer(job.output, summary.channels, summary.rate, format, job.overwrite);
    unlock(job);
    chain.back()->rounds = writer.samples() == SampleFormat::kInt16 && !job.dither;
    Stamp stamp;
    if (job.stamp) writer.keep(&stamp);
    std::int64_t added = 0;
    for (const std::unique_ptr<Stage>& stage : chain) added += stage->added();
    if (reader.frames()) writer.expect(reader.frames() + added);
    writer.set_tags(reader.tags());
    if (writer.samples() == SampleFormat::kInt16 && !job.bits && summary.narrowed.empty() &&
        reader.samples() != SampleFormat::kInt16)
      summary.narrowed = "this kind of file holds 16 bits, the recording has more";
    summary.on_standard_output = writer.is_standard_output();
    stream(job, job.output, &reader, chain, &writer, &summary);
    writer.commit();
    if (job.stamp) summary.stamp = stamp.text().data();
    summary.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    clipped_inside = summary.clipped > 0;
    summary.clipped += writer.clipped();
  }
  if (!job.takes_gain) return summary;
  if (clipped_inside && reader.repeatable())
    find_fitting_gain(job, &summary);
  else if (!clipped_inside && summary.clipped)
    fit_gain(job, summary.peak, &summary);
  return summary;
}

}  // namespace jurn
