// Plays noise through an equaliser. The sections come from Kotlin, which designs them; the audio
// thread takes the newest by one atomic pointer, fades to them, and frees nothing.
#include <JURN/Sections_control.h>
#include <aaudio/AAudio.h>
#include <jni.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

constexpr int kChannels = 2;
constexpr int kFade = 2400;  // frames, 50 ms at 48 kHz

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

/** Coefficients and a past. */
struct Equaliser {
  explicit Equaliser(const std::vector<double>& rows) {
    const int sections = static_cast<int>(rows.size() / 6);
    const Sections_shape shape = {kChannels, sections};
    std::size_t size = MORVAX_SectionsFilterSize_API(sections, 1);
    filter.reset(static_cast<SectionsFilter_ID*>(std::malloc(size)));
    usable = filter && MORVAX_SectionsFilterCalcu_API(filter.get(), size, rows.data(), sections,
                                                      1) == JURN_SECTIONS_OK;
    size = MORVAX_SectionsStreamSize_API(&shape);
    stream.reset(static_cast<SectionsStream_ID*>(std::malloc(size)));
    usable = usable && stream &&
             MORVAX_SectionsStreamCalcu_API(stream.get(), size, &shape) == JURN_SECTIONS_OK;
  }

  std::unique_ptr<SectionsFilter_ID, Free> filter;
  std::unique_ptr<SectionsStream_ID, Free> stream;
  bool usable;
};

class Player {
 public:
  explicit Player(const std::vector<double>& rows) : playing_(new Equaliser(rows)) {
    AAudioStreamBuilder* builder = nullptr;
    if (!playing_->usable || AAudio_createStreamBuilder(&builder) != AAUDIO_OK) return;
    AAudioStreamBuilder_setPerformanceMode(builder, AAUDIO_PERFORMANCE_MODE_LOW_LATENCY);
    AAudioStreamBuilder_setFormat(builder, AAUDIO_FORMAT_PCM_FLOAT);
    AAudioStreamBuilder_setChannelCount(builder, kChannels);
    AAudioStreamBuilder_setSampleRate(builder, 48000);
    AAudioStreamBuilder_setDataCallback(builder, &Player::called, this);
    if (AAudioStreamBuilder_openStream(builder, &stream_) == AAUDIO_OK)
      AAudioStream_requestStart(stream_);
    AAudioStreamBuilder_delete(builder);
  }
  ~Player() {
    if (stream_) AAudioStream_close(stream_);  // after this no callback runs
    delete playing_;
    delete next_;
    delete offered_.load();
    delete done_.load();
  }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /** The user's thread. */
  void change(const std::vector<double>& rows) {
    auto equaliser = std::make_unique<Equaliser>(rows);
    if (equaliser->usable) delete offered_.exchange(equaliser.release());
    delete done_.exchange(nullptr);
  }

 private:
  static aaudio_data_callback_result_t called(AAudioStream*, void* player, void* data,
                                              int32_t frames) {
    static_cast<Player*>(player)->play(static_cast<float*>(data), frames);
    return AAUDIO_CALLBACK_RESULT_CONTINUE;
  }

  /** The audio thread. */
  void play(float* out, int frames) {
    for (int i = 0; i < kChannels * frames; ++i) {
      random_ = random_ * 1664525u + 1013904223u;
      out[i] = static_cast<float>(static_cast<std::int32_t>(random_)) * (0.1f / 2147483648.0f);
    }
    // One that was done with has to be collected before the next fade, so that nothing is freed
    // here.
    if (!next_ && !done_.load() && (next_ = offered_.exchange(nullptr))) {
      MORVAX_SectionsFollow_API(next_->stream.get(), next_->filter.get(), playing_->stream.get(),
                                playing_->filter.get());
      voices_[0] = {playing_->stream.get(), playing_->filter.get(), 1, 1};
      voices_[1] = {next_->stream.get(), next_->filter.get(), kFade, 0};
    }
    if (!next_) {
      MORVAX_SectionsRun_API_float(playing_->stream.get(), playing_->filter.get(), out, frames,
                                   out);
      return;
    }
    MORVAX_SectionsFade_API_float(voices_, 2, out, frames, out);
    if (voices_[1].done < voices_[1].ramp) return;
    done_ = playing_;
    playing_ = next_;
    next_ = nullptr;
  }

  AAudioStream* stream_ = nullptr;
  std::uint32_t random_ = 1;
  Equaliser* playing_;
  Equaliser* next_ = nullptr;
  Sections_voice voices_[2] = {};
  std::atomic<Equaliser*> offered_{nullptr};
  std::atomic<Equaliser*> done_{nullptr};
};

std::vector<double> rows_of(JNIEnv* env, jdoubleArray rows) {
  std::vector<double> values(static_cast<std::size_t>(env->GetArrayLength(rows)));
  env->GetDoubleArrayRegion(rows, 0, static_cast<jsize>(values.size()), values.data());
  return values;
}

}  // namespace

extern "C" JNIEXPORT jlong JNICALL Java_jurn_example_Player_open(JNIEnv* env, jobject,
                                                                 jdoubleArray rows) {
  return reinterpret_cast<jlong>(new Player(rows_of(env, rows)));
}

extern "C" JNIEXPORT void JNICALL Java_jurn_example_Player_change(JNIEnv* env, jobject,
                                                                  jlong player, jdoubleArray rows) {
  reinterpret_cast<Player*>(player)->change(rows_of(env, rows));
}

extern "C" JNIEXPORT void JNICALL Java_jurn_example_Player_close(JNIEnv*, jobject, jlong player) {
  delete reinterpret_cast<Player*>(player);
}
