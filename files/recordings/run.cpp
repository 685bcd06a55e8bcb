#include "recordings/run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>

#include "errors.h"
#include "number_text.h"
#include "recordings/signals.h"
#include "units.h"

namespace jurn {
namespace {

// A pipe may be live: what comes soon goes on soon.
constexpr std::size_t kPipeFrames = 1024, kFileFrames = 8192;

double peak_of(const std::vector<double>& samples) {
  // The lanes are for the compiler's vectors.
  constexpr std::size_t kLanes = 8;
  double lanes[kLanes] = {};
  std::size_t i = 0;
  for (; i + kLanes <= samples.size(); i += kLanes)
    for (std::size_t j = 0; j < kLanes; ++j) {
      const double x = std::abs(samples[i + j]);
      lanes[j] = lanes[j] < x ? x : lanes[j];
    }
  for (; i < samples.size(); ++i) lanes[0] = std::max(lanes[0], std::abs(samples[i]));
  return *std::max_element(lanes, lanes + kLanes);
}

/** Passes frames through the stages from `first` on and leaves the result in `frames`. */
void push_through(const Chain& chain, std::size_t first, std::vector<double>* frames,
                  std::vector<double>* spare) {
  for (std::size_t i = first; i < chain.size(); ++i) {
    // Between two filters as in a file of floats.
    for (double& x : *frames)
      if (i > 0) x = static_cast<double>(static_cast<float>(x));
    spare->clear();
    chain[i]->push(frames->data(), frames->size() / static_cast<std::size_t>(chain[i]->channels_in),
                   spare);
    frames->swap(*spare);
  }
}

/** Streams the whole recording; `writer` may be null to measure only. */
void stream(const Job& job, const std::string& what, AudioReader* reader, const Chain& chain,
            AudioWriter* writer, Summary* summary) {
  const std::size_t channels_in = static_cast<std::size_t>(reader->channels());
  const std::size_t channels_out = static_cast<std::size_t>(chain.back()->channels_out);
  std::vector<double> frames, spare;
  std::int64_t frames_read = 0;
  const auto give = [&] {
    check_interrupted();
    summary->peak = std::max(summary->peak, peak_of(frames));
    if (writer) writer->write(frames.data(), frames.size() / channels_out);
    summary->frames += static_cast<std::int64_t>(frames.size() / channels_out);
    if (job.on_progress) job.on_progress({what, frames_read, reader->frames(), reader->rate()});
  };
  const std::size_t piece = reader->frames() ? kFileFrames : kPipeFrames;
  for (std::size_t got = piece; got == piece;) {
    check_interrupted();
    frames.resize(piece * channels_in);
    got = reader->read(frames.data(), piece);
    frames.resize(got * channels_in);
    frames_read += static_cast<std::int64_t>(got);
    push_through(chain, 0, &frames, &spare);
    give();
  }
  for (std::size_t i = 0; i < chain.size(); ++i)
    for (bool more = true; more;) {
      frames.clear();
      more = chain[i]->finish(&frames);
      push_through(chain, i + 1, &frames, &spare);
      give();
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
  return {job.input,
          reader.channels(),
          reader.rate(),
          reader.frames(),
          job.bits.value_or(reader.samples()),
          job.output};
}

/** The gain at which a result of this peak does not clip. */
void fit_gain(const Job& job, double peak, Summary* summary) {
  const double change = to_decibels((job.dither ? 32766.0 : 32767.0) / peak);
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

/** What the result is written as. */
AudioFormat choose_format(const Job& job, SampleFormat samples, const Chain& chain,
                          Summary* summary) {
  AudioFormat format = job.format;
  for (const std::unique_ptr<Stage>& stage : chain) {
    if (!stage->is_int16 || samples == SampleFormat::kInt16) continue;
    summary->narrowed = "this filter works in 16 bits, the recording has more";
    samples = SampleFormat::kInt16;
  }
  format.samples = job.bits.value_or(samples);
  format.narrower = !job.bits;
  return format;
}

/** Adds noise wherever more bits are rounded to fewer. */
void add_dither(std::uint32_t seed, SampleFormat samples, const Chain& chain, AudioWriter* writer) {
  bool wide = samples != SampleFormat::kInt16, acts = false;
  for (const std::unique_ptr<Stage>& stage : chain) {
    if (wide && stage->is_int16) stage->dither = std::make_unique<Dither>(seed);
    acts = acts || stage->dither;
    wide = !stage->is_int16;
  }
  if (wide && writer->samples() != SampleFormat::kFloat) {
    writer->set_dither(seed);
    acts = true;
  }
  if (!acts)
    throw Error(kUsageError, writer->path() + (wide ? ": --dither has nothing to do, since the "
                                                      "result holds floats, which are not rounded"
                                                    : ": --dither has nothing to do, since the "
                                                      "filter takes and gives 16 bits"));
}

/** Whether what is written there is gone. */
bool is_stream(const std::string& path) {
  std::error_code ignored;
  const auto kind = std::filesystem::status(path, ignored).type();
  return path == kStandardStream || (kind != std::filesystem::file_type::not_found &&
                                     kind != std::filesystem::file_type::regular);
}

/** Runs the job once. Without `keep` a result that clips is dropped. */
Summary run_once(const Job& job, bool keep) {
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
    const bool to_stream = is_stream(job.output);
    if (!keep && (!reader.repeatable() || to_stream))
      throw Error(kUsageError, (to_stream ? job.output : job.input) +
                                   ": --fit filters twice where the result clips, which takes "
                                   "files");
    AudioWriter writer(job.output, summary.channels, summary.rate, format, job.overwrite);
    if (job.dither) add_dither(*job.dither, reader.samples(), chain, &writer);
    unlock(job);
    Stamp stamp;
    if (job.stamp) writer.keep(&stamp);
    writer.tell(job.written);
    std::int64_t added = 0;
    for (const std::unique_ptr<Stage>& stage : chain) added += stage->added();
    if (reader.frames()) writer.expect(reader.frames() + added);
    writer.set_tags(reader.tags());
    summary.left_out = writer.set_metadata(reader.metadata());
    if (writer.samples() == SampleFormat::kInt16 && !job.bits && summary.narrowed.empty() &&
        reader.samples() != SampleFormat::kInt16)
      summary.narrowed = "this kind of file holds 16 bits, the recording has more";
    summary.on_standard_output = writer.is_standard_output();
    stream(job, job.output, &reader, chain, &writer, &summary);
    if (job.stamp) summary.stamp = stamp.text().data();
    clipped_inside = summary.clipped > 0;
    summary.clipped += writer.clipped();
    summary.clipped_by_channel = writer.clipped_by_channel();
    if (keep || summary.clipped == 0) writer.commit();
    summary.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  if (!job.takes_gain) return summary;
  if (clipped_inside && reader.repeatable())
    find_fitting_gain(job, &summary);
  else if (!clipped_inside && summary.clipped)
    fit_gain(job, summary.peak, &summary);
  return summary;
}

}  // namespace

Format format_of(const Recording& recording) {
  Format format;
  format.rate = recording.rate;
  format.inputs = format.outputs = recording.channels;
  format.block = kRecordingBlock;
  format.history = 0;
  format.is_live = false;
  return format;
}

std::string loss_of(const Summary& summary) {
  if (!summary.lost_after) return {};
  return std::string(
             "the filter's numbers grow beyond all bounds, and the result is silent or worthless "
             "from second ") +
         printed("%.3f", *summary.lost_after) + " on; the filter is unstable";
}

Summary run(const Job& job) {
  if (!job.fit) return run_once(job, true);
  const Summary summary = run_once(job, false);
  if (summary.clipped == 0) return summary;
  Job quieter = job;
  if (summary.fitting_gain_db) quieter.gain_db = *summary.fitting_gain_db;
  if (job.lock) job.lock->lock();
  Summary fitted = run_once(quieter, true);
  if (summary.fitting_gain_db) fitted.fitted_gain_db = summary.fitting_gain_db;
  return fitted;
}

}  // namespace jurn
