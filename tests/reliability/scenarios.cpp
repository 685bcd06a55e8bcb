#include "scenarios.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <type_traits>

#include "../random.h"
#include "Convolution_control.h"
#include "Filter_control.h"
#include "Fir_control.h"
#include "OKA_Filter/records/sections.h"

namespace {

/** Of numbers, not of bytes, so that it is the same whatever their order in memory: eight bytes at
 * a time of those that a little-endian machine would have. */
class Hash {
 public:
  template <class T>
  void add(const T* values, size_t count) {
    put(values, count);
    end();
  }
  template <class... Fields>
  void add_fields(const Fields&... fields) {
    (put_field(fields), ...);
    end();
  }
  uint64_t value() const { return state_ ^ (state_ >> 32); }

 private:
  template <class T>
  using Bits = std::conditional_t<sizeof(T) == 2, uint16_t,
                                  std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>>;
  template <class T>
  void put(const T* values, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      Bits<T> bits;
      std::memcpy(&bits, values + i, sizeof bits);
      word_ |= static_cast<uint64_t>(bits) << used_;
      used_ += 8 * sizeof bits;
      if (used_ == 64) end();
    }
  }
  template <class T>
  void put_field(const T& number) {
    put(&number, 1);
  }
  template <class T, size_t count>
  void put_field(const T (&numbers)[count]) {
    put(numbers, count);
  }
  void end() {
    if (used_ == 0) return;
    state_ = (state_ ^ word_) * 0x9E3779B97F4A7C15u;
    state_ ^= state_ >> 29;
    word_ = 0;
    used_ = 0;
  }
  uint64_t state_ = 0xCBF29CE484222325u, word_ = 0;
  unsigned used_ = 0;
};

#define HISTORY(m) m.meminput, m.memi, m.memsumin, m.memoutput, m.mempx, m.mempy
#define QUEUE(q) q.membuf, q.id, q.front, q.rear

void add_record(Hash* hash, const Filter_ID& r) {
  hash->add_fields(HISTORY(r.memL), HISTORY(r.memR), r.b, r.a, r.blen, r.alen, r.Order, r.ns, r.n,
                   r.chanel, r.filtertype);
}
void add_record(Hash* hash, const shuzhiFilter_ID& r) {
  hash->add_fields(r.meminput, r.memi, r.memsumin, r.N_1, r.blen);
}
void add_record(Hash* hash, const Filterf_ID& r) {
  hash->add_fields(r.memL.meminput, r.memL.memoutput, r.b, r.a, r.blen, r.alen);
}
void add_record(Hash* hash, const Filterlongfir_ID& r) {
  hash->add_fields(HISTORY(r.memL), HISTORY(r.memR), QUEUE(r.mBufin), QUEUE(r.mBufout), r.realfft.N,
                   r.realfft.fft_ip, r.realfft.fft_w, r.realfft.scale, r.hLrfft, r.hRrfft, r.xLintl,
                   r.xRintl, r.xLhL, r.xRhR, r.xLhL0, r.xRhR0, r.fftN, r.offset, r.cmemhLrfft,
                   r.cmemhRrfft, r.cmemb, r.cmembR, r.cmeminputL, r.cmeminputR, r.cmemfftN,
                   r.cmemblen, r.cmemcall, r.b, r.a, r.membufrear, r.blen, r.alen, r.Order, r.ns,
                   r.n, r.bR, r.aR, r.bRlen, r.aRlen, r.OrderR, r.nsR, r.nR, r.chanel,
                   r.filtertype);
}

/** Feedback whose magnitudes sum to less than one. */
template <class Real>
void fill_denominator(Random* random, Real* a, int count) {
  random->denominator(a, count);
  a[0] = 1;  // not every processor has the same NaN
}

void fill_sections(Random* random, float* b, float* a, int n, int ns) {
  for (int k = 0; k < ns; ++k) {
    random->uniform(b + k * (n + 1), n + 1, 0.75);
    fill_denominator(random, a + k * (n + 1), n + 1);
  }
}

/** What the exported double kernels work on. */
struct Kernel {
  float past_inputs[4000];
  double past_outputs[4000], b[2000], a[2000];
};
void add_record(Hash* hash, const Kernel& r) {
  hash->add_fields(r.past_inputs, r.past_outputs, r.b, r.a);
}

/** A record, cleared, and the checksum of what it puts out. */
template <class Record>
class Run {
 public:
  Run(const Placement& placement, unsigned seed) : random(seed), placement_(placement) {
    record = static_cast<Record*>(std::calloc(1, sizeof(Record)));
    home_ = record;
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run() { std::free(home_); }

  /** One block through `call`(record, input, count, output). */
  template <class In = short, class Out = short, class Call>
  void block(int in_count, int out_count, Call call) {
    if (placement_.move)
      record = static_cast<Record*>(placement_.move(record, sizeof(Record), alignof(Record)));
    std::vector<In> input(in_count + placement_.array_offset);
    std::vector<Out> output(out_count + placement_.array_offset);
    In* in = input.data() + placement_.array_offset;
    Out* out = output.data() + placement_.array_offset;
    random.signal(in, in_count);
    call(record, in, in_count, out);
    hash.add(out, out_count);
  }
  /** The checksum, with the record's every number but those of its work arrays. */
  uint64_t finish() {
    if constexpr (std::is_same<Record, Filterlongfir_ID>::value)
      std::memset(record->xLintl, 0, 6 * sizeof record->xLintl);
    add_record(&hash, *record);
    return hash.value();
  }

  Random random;
  Hash hash;
  Record* record;

 private:
  const Placement& placement_;
  void* home_;
};

/** Loud, ordinary, and so small that products are denormal. */
const double kScales[] = {3.0, 0.03125, 0x1p-142};
const int kFrames[] = {1, 7, 64, 480, 1056};

/** The FIR, IIR, cascade and moving-average kinds, which two objects share. */
template <class Record>
void configure(Random* random, Record* r, int size, double scale) {
  r->blen = size;
  r->alen = size % 40 + 2;
  random->uniform(r->b, size, scale);
  fill_denominator(random, r->a, r->alen);
  if (r->filtertype == 1) {
    r->n = size % 2 ? 2 : 4;
    r->ns = size % 20 + 1;
    fill_sections(random, r->b, r->a, r->n, r->ns);
  }
}

template <int chanel, int type>
uint64_t int16_filter(const Placement& placement) {
  Run<Filter_ID> run(placement, 100 + 10 * chanel + type);
  Filter_ID* other = static_cast<Filter_ID*>(std::calloc(1, sizeof(Filter_ID)));
  for (int size : {1, 2, 5, 16, 37, 130, 515, 1100})
    for (int frames : kFrames) {
      const int count = chanel * frames;
      Filter_ID* r = run.record;
      r->chanel = chanel;
      r->filtertype = type;
      configure(&run.random, r, size, kScales[size % 3]);
      MORVAX_FilterReset_API(r);
      for (int call = 0; call < 4; ++call) {
        if (call == 2 && type < 1) {  // new coefficients on the old history
          *other = *run.record;
          run.random.uniform(other->b, size, 0.25);
          MORVAX_Filter_abCopy_API(run.record, other);
        }
        run.block(count, count, MORVAX_FilterRun_API);
      }
    }
  std::free(other);
  return run.finish();
}

template <int type>
uint64_t from_table(const Placement& placement) {
  Run<Filter_ID> run(placement, 200 + type);
  for (int order : {1, 2, 9, 30}) {
    float num[64], den[64];
    if (type == 1) {
      fill_sections(&run.random, num, den, 2, (order + 1) / 2);
    } else {
      run.random.uniform(num, order + 1, 1.0);
      fill_denominator(&run.random, den, order + 1);
    }
    run.record->chanel = 1;
    MORVAX_FilterCalcu_API_FromMatlabTable(run.record, num, den, order, type);
    MORVAX_FilterReset_API(run.record);
    for (int call = 0; call < 5; ++call) run.block(333, 333, MORVAX_FilterRun_API);
  }
  return run.finish();
}

uint64_t moving_sum(const Placement& placement) {
  Run<shuzhiFilter_ID> run(placement, 300);
  for (int blen = 1; blen <= 256; blen += blen < 40 ? 1 : 27) {
    run.record->blen = blen;
    MORVAX_shuzhiFilterCalcu_API(run.record);
    MORVAX_shuzhiFilterReset_API(run.record);
    for (int frames : kFrames) {
      run.block(frames, frames, MORVAX_shuzhiFilterRun_API);
      run.block<short, int>(9, 9, [](shuzhiFilter_ID* r, const short* in, int count, int* out) {
        for (int i = 0; i < count; ++i)
          out[i] = MORVAX_shuzhiFilterRun_API_inonesampleoutsum(r, in[i]);
      });
    }
  }
  return run.finish();
}

template <int type>
uint64_t float_filter(const Placement& placement) {
  Run<Filterf_ID> run(placement, 400 + type);
  for (int size : {1, 2, 5, 16, 37, 130, 201})
    for (double scale : {1.0, 0x1p-20, 0x1p-160})  // results that are normal, denormal and zero
      for (int frames : kFrames) {
        Filterf_ID* r = run.record;
        r->filtertype = type;
        r->blen = size;
        r->alen = size % 40 + 2;
        run.random.uniform(r->b, size, scale);
        fill_denominator(&run.random, r->a, r->alen);
        MORVAX_FilterfReset_API(r);
        for (int call = 0; call < 2; ++call) {
          run.block<float, float>(frames, frames, MORVAX_FilterfRun_API);
          run.block<float, float>(frames, frames,
                                  [](Filterf_ID* f, const float* in, int count, float* out) {
                                    std::vector<float> faint(in, in + count);
                                    for (float& x : faint) x *= 0x1p-142f;
                                    MORVAX_FilterfRun_API(f, faint.data(), count, out);
                                  });
          run.block<short, float>(frames, frames, MORVAX_FilterfRun_API_shortin);
        }
      }
  return run.finish();
}

/** The exported double kernels, on longer filters than the object holds. */
template <bool feedback>
uint64_t float_kernel(const Placement& placement) {
  Run<Kernel> run(placement, 500 + feedback);
  for (int size : {1, 300, 1999}) {
    run.random.uniform(run.record->b, size, 0.5);
    fill_denominator(&run.random, run.record->a, size);
    for (int call = 0; call < 3; ++call)
      run.block<float, float>(700, 700, [size](Kernel* k, const float* in, int count, float* out) {
        if (feedback)
          MORVAX_Qiirf(out, in, count, k->past_outputs, k->past_inputs, k->b,
                       static_cast<short>(size), k->a, static_cast<short>(size));
        else
          MORVAX_Qfirf(out, in, count, k->past_inputs, k->b, static_cast<short>(size));
      });
  }
  return run.finish();
}

/** The FIR on memory of the caller's, from normal results to denormal ones. */
uint64_t fir_double(const Placement& placement) {
  Random random(73);
  Hash hash;
  for (int size : {1, 2, 5, 16, 130, 700})
    for (double scale : {1.0, 0x1p-1060})
      for (int frames : kFrames) {
        std::vector<double> b(size), x(placement.array_offset + size - 1 + frames);
        std::vector<double> y(placement.array_offset + frames);
        random.uniform(b.data(), size, scale);
        double* const past = x.data() + placement.array_offset;
        double* const out = y.data() + placement.array_offset;
        random.uniform(past, size - 1 + frames, 1.0);
        MORVAX_FirRun_API_double(out, past + size - 1, frames, b.data(), size);
        hash.add(out, frames);
      }
  return hash.value();
}

/** The time-domain kinds; those with two filters fade in every third block. */
template <int chanel, int type>
uint64_t long_filter(const Placement& placement) {
  Run<Filterlongfir_ID> run(placement, 600 + 10 * chanel + type);
  const bool two = type == -3 || type == -6;
  for (int size : {1, 5, 38, 515, 1100}) {
    const int frames = kFrames[size % 5], count = chanel * frames;
    Filterlongfir_ID* r = run.record;
    r->chanel = chanel;
    r->filtertype = type;
    configure(&run.random, r, size, kScales[size % 3]);
    r->bRlen = size / 2 + 1;
    run.random.uniform(r->bR, size, kScales[(size + 1) % 3]);
    MORVAX_FilterlongfirReset_API(r);
    for (int call = 0; call < 6; ++call) {
      if (two && call % 3 == 0) {
        MORVAX_FilterlongfirCalcu_APItime(run.record);
        run.random.uniform(run.record->b, size, 0.25);
        run.random.uniform(run.record->bR, size, 0.25);
      }
      run.block(count, type == -6 ? 2 * count : count, MORVAX_FilterlongfirRun_API);
    }
  }
  if (type < 0) {
    run.record->blen = run.record->bRlen = 20000;
    run.random.uniform(run.record->b, 20000, 0.03125);
    run.random.uniform(run.record->bR, 20000, 0.03125);
    MORVAX_FilterlongfirReset_API(run.record);
    for (int call = 0; call < 3; ++call)
      run.block(chanel * 200, type == -6 ? 400 : chanel * 200, MORVAX_FilterlongfirRun_API);
  }
  return run.finish();
}

/** The FFT kinds at every transform length, with changes of the taps while blocks go on. */
template <int chanel, int type>
uint64_t fft_filter(const Placement& placement) {
  Run<Filterlongfir_ID> run(placement, 700 + 10 * chanel + type);
  for (int size : {1, 2, 3, 5, 13, 32, 33, 65, 200, 480, 1000, 1025, 4000, 8192}) {
    Filterlongfir_ID* r = run.record;
    r->chanel = chanel;
    r->filtertype = type;
    r->blen = size;
    r->bRlen = size % 3 ? size : size / 2 + 1;
    MORVAX_FilterlongfirReset_API(r);
    for (int change = 0; change < 3; ++change) {
      for (float* taps : {run.record->b, run.record->bR})
        run.random.uniform(taps, size, kScales[(change + size) % 3]);
      for (int i = run.record->bRlen; i < size; ++i) run.record->bR[i] = 0.0f;
      MORVAX_FilterlongfirCalcu_API_forFFT(run.record);
      for (int queued = 0; queued < 2 * size + 600;) {
        const int frames = run.random.in(0, 1200), count = chanel * frames;
        run.block(count, type == -5 ? 2 * count : count, MORVAX_FilterlongfirRun_API);
        queued += frames;
      }
    }
    run.hash.add(run.record->hLrfft, run.record->fftN);
    run.hash.add(run.record->cmemhRrfft, run.record->fftN);
  }
  return run.finish();
}

/** What an object of a size that it tells lies in. */
template <class Real>
struct Memory {
  std::vector<Real> home;
  void* place;
  size_t size;
  explicit Memory(size_t bytes) : home(bytes / sizeof(Real)), place(home.data()), size(bytes) {}
  void move(const Placement& to) {
    if (to.move) place = to.move(place, size, alignof(Real));
  }
  SectionsStream_ID* stream() { return static_cast<SectionsStream_ID*>(place); }
  SectionsFilter_ID* filter() { return static_cast<SectionsFilter_ID*>(place); }
};

/** Convolutions with fades, every other one of them prepared; the response moves as the stream
 * does. */
template <class Sample>
uint64_t convolutions(const Placement& placement, std::initializer_list<Convolution_shape> shapes) {
  Random random(71);
  Hash hash;
  for (const Convolution_shape shape : shapes) {
    std::vector<Memory<float>> responses;
    for (int i = 0; i < 2; ++i) {
      std::vector<float> taps(shape.taps);
      random.uniform(taps.data(), shape.taps, kScales[i + 1]);
      const Convolution_route routes[] = {{0, shape.outputs - 1, taps.data(), shape.taps},
                                          {shape.inputs - 1, 0, taps.data() + 3, shape.taps / 2}};
      responses.emplace_back(MORVAX_ConvolutionResponseSize_API(&shape, routes, i + 1));
      MORVAX_ConvolutionResponseCalcu_API(static_cast<ConvolutionResponse_ID*>(responses[i].place),
                                          responses[i].size, &shape, routes, i + 1);
    }
    Memory<float> stream(MORVAX_ConvolutionStreamSize_API(&shape));
    MORVAX_ConvolutionStreamCalcu_API(static_cast<ConvolutionStream_ID*>(stream.place), stream.size,
                                      &shape);
    const int in_count = shape.inputs * shape.block, out_count = shape.outputs * shape.block;
    std::vector<Sample> input(in_count + placement.array_offset);
    std::vector<Sample> output(out_count + placement.array_offset);
    Sample* const in = input.data() + placement.array_offset;
    Sample* const out = output.data() + placement.array_offset;
    for (int call = 0; call < 2 * shape.taps / shape.block && call < 150; ++call) {
      random.signal(in, in_count);
      for (Memory<float>* memory : {&stream, &responses[0], &responses[1]}) memory->move(placement);
      auto* const s = static_cast<ConvolutionStream_ID*>(stream.place);
      const auto* const now =
          static_cast<const ConvolutionResponse_ID*>(responses[call / 25 % 2].place);
      const auto* const before =
          static_cast<const ConvolutionResponse_ID*>(responses[1 - call / 25 % 2].place);
      const bool fades = call > 0 && call % 25 == 0;
      if constexpr (std::is_same<Sample, short>::value) {
        if (fades)
          MORVAX_ConvolutionFade_API(s, before, now, in, out);
        else
          MORVAX_ConvolutionRun_API(s, now, in, out);
      } else {
        if (fades)
          MORVAX_ConvolutionFade_API_float(s, before, now, in, out);
        else
          MORVAX_ConvolutionRun_API_float(s, now, in, out);
      }
      hash.add(out, out_count);
      if (call / 25 % 2 == 0 && call % 25 >= 5) MORVAX_ConvolutionPrepareFade_API(s, before);
    }
    hash.add(static_cast<const float*>(stream.place), stream.size / sizeof(float));
  }
  return hash.value();
}

/** In one, two and three levels. */
template <class Sample>
uint64_t convolution(const Placement& placement) {
  return convolutions<Sample>(
      placement,
      {{1, 1, 1, 40}, {2, 2, 64, 700}, {1, 2, 48, 3000}, {3, 1, 16, 9000}, {2, 1, 480, 9000}});
}

/** In four levels, and with long transforms. */
template <class Sample>
uint64_t long_convolution(const Placement& placement) {
  return convolutions<Sample>(placement, {{1, 1, 64, 90000}, {1, 1, 1024, 300000}});
}

/** Sections in every arrangement of lanes, with a fade through several calls. */
template <class Sample>
uint64_t sections(const Placement& placement) {
  Random random(72);
  Hash hash;
  for (const Sections_shape shape :
       {Sections_shape{1, 1}, {1, 2}, {1, 4}, {1, 10}, {2, 1}, {2, 2}, {2, 3}, {3, 7}}) {
    std::vector<Memory<double>> filters, streams;
    for (int i = 0; i < 2; ++i) {
      const int count = shape.sections, lists = i == 0 ? 1 : shape.channels;
      std::vector<float> b(3 * count * lists), a(b.size());
      random.sections(b.data(), a.data(), 2, count * lists);
      std::vector<double> sos;
      for (size_t j = 0; j < b.size(); ++j) {
        if (j % 3 == 0) sos.insert(sos.end(), {b[j], b[j + 1], b[j + 2], 1.0});
        if (j % 3 != 0) sos.push_back(a[j]);
      }
      filters.emplace_back(MORVAX_SectionsFilterSize_API(count, lists));
      MORVAX_SectionsFilterCalcu_API(filters[i].filter(), filters[i].size, sos.data(), count,
                                     lists);
      hash.add(reinterpret_cast<const double*>(filters[i].filter() + 1),
               (filters[i].size - sizeof(Sections_filter_st)) / sizeof(double));
      streams.emplace_back(MORVAX_SectionsStreamSize_API(&shape));
      MORVAX_SectionsStreamCalcu_API(streams[i].stream(), streams[i].size, &shape);
    }
    int now = 0, passed = 1000;
    for (int call = 0; call < 60; ++call) {
      const int frames = random.in(0, call % 4 ? 64 : 700), count = frames * shape.channels;
      std::vector<Sample> input(count + placement.array_offset), output(input.size());
      Sample* const in = input.data() + placement.array_offset;
      Sample* const out = output.data() + placement.array_offset;
      random.signal(in, count);
      for (Memory<double>* memory : {&streams[0], &streams[1], &filters[0], &filters[1]})
        memory->move(placement);
      Memory<double>&stream = streams[now], &other = streams[1 - now];
      if (call % 20 == 10) {
        MORVAX_SectionsFollow_API(other.stream(), filters[1 - now].filter(), stream.stream(),
                                  filters[now].filter());
        now = 1 - now;
        passed = 0;
      }
      Sections_voice voices[2] = {{streams[1 - now].stream(), filters[1 - now].filter(), 1, 0},
                                  {streams[now].stream(), filters[now].filter(), 1000, passed}};
      const bool fades = passed < 1000;
      Sections_voice* const from = fades ? voices : voices + 1;
      if constexpr (std::is_same<Sample, short>::value)
        MORVAX_SectionsFade_API(from, fades ? 2 : 1, in, frames, out);
      else if constexpr (std::is_same<Sample, float>::value)
        MORVAX_SectionsFade_API_float(from, fades ? 2 : 1, in, frames, out);
      else
        MORVAX_SectionsFade_API_double(from, fades ? 2 : 1, in, frames, out);
      if (fades) passed = voices[1].done;
      hash.add(out, count);
    }
    hash.add(reinterpret_cast<const double*>(streams[now].stream() + 1),
             (streams[now].size - sizeof(Sections_stream_st)) / sizeof(double));
  }
  return hash.value();
}

}  // namespace

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = {
      {"int16_fir_mono", int16_filter<1, -1>},
      {"int16_fir_stereo", int16_filter<2, -1>},
      {"int16_iir_mono", int16_filter<1, 0>},
      {"int16_iir_stereo", int16_filter<2, 0>},
      {"int16_cascade_mono", int16_filter<1, 1>},
      {"int16_cascade_stereo", int16_filter<2, 1>},
      {"int16_average", int16_filter<1, 2>},
      {"int16_vectors", from_table<0>},
      {"int16_table", from_table<1>},
      {"moving_sum", moving_sum},
      {"float_fir", float_filter<-1>},
      {"float_iir", float_filter<0>},
      {"float_fir_kernel", float_kernel<false>},
      {"float_iir_kernel", float_kernel<true>},
      {"long_fir_mono", long_filter<1, -1>},
      {"long_fir_stereo", long_filter<2, -1>},
      {"long_fir_two_filters", long_filter<2, -3>},
      {"long_fir_mono_to_stereo", long_filter<1, -6>},
      {"long_iir_mono", long_filter<1, 0>},
      {"long_iir_stereo", long_filter<2, 0>},
      {"long_cascade_mono", long_filter<1, 1>},
      {"long_cascade_stereo", long_filter<2, 1>},
      {"long_average", long_filter<1, 2>},
      {"long_fft_stereo", fft_filter<2, -2>},
      {"long_fft_crossed", fft_filter<2, -7>},
      {"long_fft_left_only", fft_filter<2, -4>},
      {"long_fft_mono_to_stereo", fft_filter<1, -5>},
      {"long_fft_mono", fft_filter<1, -2>},
      {"convolution_int16", convolution<short>},
      {"convolution_float", convolution<float>},
      {"long_convolution_int16", long_convolution<short>},
      {"long_convolution_float", long_convolution<float>},
      {"sections_int16", sections<short>},
      {"sections_float", sections<float>},
      {"sections_double", sections<double>},
      {"fir_double", fir_double},
  };
  return all;
}
