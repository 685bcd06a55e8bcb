#include "reference.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "OKA_Filter/records/sections.h"

namespace ref {

namespace {

bool is_flushed(double x) {
  return std::fabs(x) < 1e-6;
}

/** c[first] newest[-first] + ..., each product rounded before it is added. */
template <class Real, class Sample>
Real sum_of_products(const Real* c, int first, int count, const Sample* newest) {
  Real sum = 0;
  for (int j = first; j < count; ++j) {
    const Real product = c[j] * static_cast<Real>(newest[-j]);
    sum = sum + product;
  }
  return sum;
}

/** Moves the past found by the current length to the front and appends the block, whose first
 * sample in the history is returned. */
template <class Sample>
const Sample* append(Sample* history, int past, const Sample* input, int inlen) {
  std::memmove(history, history + inlen, past * sizeof(Sample));
  std::copy(input, input + inlen, history + past);
  return history + past;
}

short stoshort(float x) {
  if (std::isnan(x)) return 0;
  if (x >= 32767.0f) return 32767;
  if (x < -32768.0f) return -32768;
  return static_cast<short>(std::trunc(x));
}

void fir(short* output, const short* input, int inlen, short* mem_input, const float* b,
         short blen) {
  const short* x = append(mem_input, blen - 1, input, inlen);
  for (int i = 0; i < inlen; ++i) output[i] = stoshort(sum_of_products(b, 0, blen, x + i));
}

/** Not limited: a sum that is no longer the ring's may lie beyond every sample. */
short whole_mean(float scale, int sum) {
  return static_cast<short>(static_cast<int>(scale * static_cast<float>(sum)));
}

void average(short* output, const short* input, int inlen, short* ring, short len, int* sum,
             int* memi) {
  const float n_1 = static_cast<float>(1.0 / len);
  for (int i = 0; i < inlen; ++i) {
    *sum = *sum - ring[*memi] + input[i];
    ring[*memi] = input[i];
    *memi = (*memi + 1) % len;
    output[i] = whole_mean(n_1, *sum);
  }
}

/** The recurrence on straight histories; convert(y) is what is put out. */
template <class In, class Value, class Out, class Convert>
void recursive(Out* output, const In* input, int inlen, Value* mem_output, In* mem_input,
               const Value* b, int blen, const Value* a, int alen, Convert convert) {
  const In* x = append(mem_input, blen - 1, input, inlen);
  Value* y = mem_output + alen - 1;
  for (int j = 0; j < alen - 1; ++j)
    mem_output[j] = is_flushed(mem_output[j + inlen]) ? Value(0) : mem_output[j + inlen];
  for (int i = 0; i < inlen; ++i)
    y[i] = sum_of_products(b, 0, blen, x + i) - sum_of_products(a, 1, alen, y + i);
  for (int i = 0; i < inlen; ++i) output[i] = convert(y[i]);
}

void cascade(const float* b, const float* a, int n, int ns, float* x, int len, float* px,
             float* py) {
  if (n != 2 && n != 4) return;
  for (int k = 0; k < ns; ++k) {
    const int base = k * (n + 1);
    for (int i = 0; i < len; ++i) {
      px[base] = x[i];
      x[i] = x[i] * b[base];
      for (int j = 1; j <= n; ++j) {
        const float forward = b[base + j] * px[base + j];
        const float back = a[base + j] * py[base + j];
        const float difference = forward - back;
        x[i] = x[i] + difference;
      }
      if (is_flushed(x[i])) x[i] = 0.0f;
      for (int j = n; j >= 2; --j) {
        px[base + j] = px[base + j - 1];
        py[base + j] = py[base + j - 1];
      }
      px[base + 1] = px[base];
      py[base + 1] = x[i];
    }
  }
}

template <class History>
void reset_history(History* mem) {
  std::memset(mem->meminput, 0, sizeof mem->meminput);
  std::memset(mem->memoutput, 0, sizeof mem->memoutput);
  for (int i = 0; i < 750; ++i) mem->mempx[i] = mem->mempy[i] = 0.0f;
  mem->memi = mem->memsumin = 0;
}

/** The kinds -1, 0, 1 and 2 of one channel. */
template <class Record, class History>
void run_channel(Record* f, History* mem, std::vector<short>* block) {
  const int len = static_cast<int>(block->size());
  short* io = block->data();
  const short blen = static_cast<short>(f->blen);
  const short alen = static_cast<short>(f->alen);
  if (f->filtertype == -1) fir(io, io, len, mem->meminput, f->b, blen);
  if (f->filtertype == 0)
    recursive(io, io, len, mem->memoutput, mem->meminput, f->b, blen, f->a, alen, stoshort);
  if (f->filtertype == 1) {
    std::vector<float> x(block->begin(), block->end());
    cascade(f->b, f->a, f->n, f->ns, x.data(), len, mem->mempx, mem->mempy);
    for (int i = 0; i < len; ++i) io[i] = stoshort(x[i]);
  }
  if (f->filtertype == 2) average(io, io, len, mem->meminput, blen, &mem->memsumin, &mem->memi);
}

template <class Record>
void run_plain(Record* f, const short* input, int inLen, short* output) {
  const int type = f->filtertype;
  if (f->chanel == 1 && type >= -1 && type <= 2) {
    std::vector<short> block(input, input + inLen);
    run_channel(f, &f->memL, &block);
    for (int i = 0; i < inLen; ++i) output[i] = block[i];
  } else if (f->chanel == 2 && type >= -1 && type <= 1) {
    const int frames = inLen / 2;
    std::vector<short> left(frames), right(frames);
    for (int i = 0; i < frames; ++i) {
      left[i] = input[2 * i];
      right[i] = input[2 * i + 1];
    }
    run_channel(f, &f->memL, &left);
    run_channel(f, &f->memR, &right);
    for (int i = 0; i < frames; ++i) {
      output[2 * i] = left[i];
      output[2 * i + 1] = right[i];
    }
  }
}

void fade(std::vector<short>* current, const std::vector<short>& saved) {
  const int m = static_cast<int>(current->size());
  if (m == 1) return;
  const float idivinlen = 1.0f / static_cast<float>(m - 1);
  for (int i = 0; i < m; ++i) {
    const float w = 1.0f - idivinlen * static_cast<float>(i);
    const int product = i * (*current)[i];
    const float p = static_cast<float>(product);
    const float v = w * static_cast<float>(saved[i]) + idivinlen * p;
    (*current)[i] = static_cast<short>(v);
  }
}

/** The kinds -3 and -6. */
void run_two_filters(Filterlongfir_ID* f, const short* input, int inLen, short* output) {
  const int frames = inLen / f->chanel;
  std::vector<short> left(frames), right(frames);
  for (int i = 0; i < frames; ++i) {
    left[i] = input[f->chanel * i];
    right[i] = input[f->chanel * i + f->chanel - 1];
  }
  std::vector<short> left0 = left, right0 = right;
  fir(left.data(), left.data(), frames, f->memL.meminput, f->b, static_cast<short>(f->blen));
  fir(right.data(), right.data(), frames, f->memR.meminput, f->bR, static_cast<short>(f->bRlen));
  if (f->cmemcall == 1) {
    const short saved = static_cast<short>(f->cmemblen);
    fir(left0.data(), left0.data(), frames, f->cmeminputL, f->cmemb, saved);
    fir(right0.data(), right0.data(), frames, f->cmeminputR, f->cmembR, saved);
    fade(&left, left0);
    fade(&right, right0);
    f->cmemcall = 0;
  }
  for (int i = 0; i < frames; ++i) {
    output[2 * i] = left[i];
    output[2 * i + 1] = right[i];
  }
}

}  // namespace

void qfir(float* output, const float* input, int inlen, float* mem_input, const double* b,
          short blen) {
  const float* x = append(mem_input, blen - 1, input, inlen);
  for (int i = 0; i < inlen; ++i)
    output[i] = static_cast<float>(sum_of_products(b, 0, blen, x + i));
}

void qiir(float* output, const float* input, int inlen, double* mem_output, float* mem_input,
          const double* b, short blen, const double* a, short alen) {
  recursive(output, input, inlen, mem_output, mem_input, b, blen, a, alen,
            [](double y) { return static_cast<float>(y); });
}

void reset(Filter_ID* filter) {
  reset_history(&filter->memL);
  reset_history(&filter->memR);
}

void set_up(Filter_ID* filter, const float* num, const float* den, int order, int type) {
  filter->Order = order;
  filter->blen = filter->alen = order + 1;
  filter->ns = (order + 1) / 2;
  filter->n = 2;
  filter->filtertype = type;
  const int entries = type < 1 ? order + 1 : 3 * filter->ns;
  for (int i = 0; i < entries; ++i) {
    filter->b[i] = num[i];
    filter->a[i] = den[i];
  }
}

void copy(Filter_ID* to, const Filter_ID* from) {
  to->blen = from->blen;
  to->alen = from->alen;
  for (int i = 0; i < from->blen; ++i) to->b[i] = from->b[i];
  for (int i = 0; i < from->alen; ++i) to->a[i] = from->a[i];
}

void run(Filter_ID* filter, const short* input, int inLen, short* output) {
  run_plain(filter, input, inLen, output);
}

void reset(shuzhiFilter_ID* filter) {
  for (short& sample : filter->meminput) sample = 0;
  filter->memi = filter->memsumin = 0;
}

void set_up(shuzhiFilter_ID* filter) {
  filter->N_1 = static_cast<float>(1.0 / filter->blen);
}

int push(shuzhiFilter_ID* filter, short input) {
  filter->memsumin = filter->memsumin - filter->meminput[filter->memi] + input;
  filter->meminput[filter->memi] = input;
  filter->memi = (filter->memi + 1) % filter->blen;
  return filter->memsumin;
}

void run(shuzhiFilter_ID* filter, const short* input, int inLen, short* output) {
  for (int i = 0; i < inLen; ++i) output[i] = whole_mean(filter->N_1, push(filter, input[i]));
}

void reset(Filterf_ID* filter) {
  for (float& sample : filter->memL.meminput) sample = 0.0f;
  for (double& sample : filter->memL.memoutput) sample = 0.0;
}

void run(Filterf_ID* filter, const float* input, int inLen, float* output) {
  if (filter->filtertype == -1)
    qfir(output, input, inLen, filter->memL.meminput, filter->b, static_cast<short>(filter->blen));
  if (filter->filtertype == 0)
    qiir(output, input, inLen, filter->memL.memoutput, filter->memL.meminput, filter->b,
         static_cast<short>(filter->blen), filter->a, static_cast<short>(filter->alen));
}

void run(Filterf_ID* filter, const short* input, int inLen, float* output) {
  const std::vector<float> block(input, input + inLen);
  run(filter, block.data(), inLen, output);
}

void reset(Buf16_ID* queue) {
  for (short& slot : queue->membuf) slot = 0;
  queue->id = queue->front = queue->rear = 0;
}

int have(const Buf16_ID* queue) {
  return (queue->rear + 105600 - queue->front) % 105600;
}

void put(Buf16_ID* queue, const short* in, int count, int stride) {
  for (int i = 0; i < count && have(queue) < 105599; ++i) {
    queue->rear = (queue->rear + 1) % 105600;
    queue->membuf[queue->rear] = in[stride * i];
  }
}

int take(Buf16_ID* queue, short* out, int count) {
  int taken = 0;
  for (int i = 0; i < count; ++i) {
    out[i] = 0;
    if (have(queue) == 0) continue;
    queue->front = (queue->front + 1) % 105600;
    out[i] = queue->membuf[queue->front];
    ++taken;
  }
  return taken;
}

void reset(Filterlongfir_ID* filter) {
  reset_history(&filter->memL);
  reset_history(&filter->memR);
  reset(&filter->mBufin);
  reset(&filter->mBufout);
  filter->membufrear = -12345;
  filter->cmemcall = filter->cmemblen = filter->cmemfftN = 0;
}

void save_for_fade(Filterlongfir_ID* f) {
  if (f->cmemblen == f->blen) {
    for (int i = 0; i < f->blen; ++i) {
      f->cmemb[i] = f->b[i];
      f->cmembR[i] = f->bR[i];
    }
    for (int i = 0; i < f->blen + 1056; ++i) {
      f->cmeminputL[i] = f->memL.meminput[i];
      f->cmeminputR[i] = f->memR.meminput[i];
    }
    f->cmemcall = 1;
  }
  f->cmemblen = f->blen;
}

void run(Filterlongfir_ID* filter, const short* input, int inLen, short* output) {
  const bool two_filters = (filter->chanel == 2 && filter->filtertype == -3) ||
                           (filter->chanel == 1 && filter->filtertype == -6);
  if (two_filters)
    run_two_filters(filter, input, inLen, output);
  else
    run_plain(filter, input, inLen, output);
}

void run(SectionsStream_ID* stream, const SectionsFilter_ID* filter, int channel, const double* x,
         int frames, double* y) {
  double* const inputs = JURN_section_inputs(stream, channel);
  double* const states = JURN_section_states(stream, channel);
  const double* const coefficients =
      JURN_section_coefficients(filter, filter->lists > 1 ? channel : 0);
  const int sections = filter->sections;
  unsigned position = stream->position;
  for (int i = 0; i < frames; ++i) {
    const int now = position % 4;
    const bool last = now == 3;
    inputs[now] = x[i] - x[i] == 0 ? x[i] : 0.0;
    if (sections == 0) inputs[now] += 0.0;
    double step[4];
    std::memcpy(step, inputs, sizeof step);
    for (int k = 0; k < sections; ++k) {
      const double* const h = coefficients + JURN_section_at(sections, k, section_coefficients);
      double* const s = states + JURN_section_at(sections, k, section_states);
      const auto c = [&](int j) { return h[(section_c + j) * 4]; };
      const auto e = [&](int j) { return h[(section_e + j) * 4]; };
      const double s0 = s[0], s1 = s[4];
      double out[4], u0 = 0, u1 = 0;
      for (int j = 0; j < 4; ++j) {
        double sum = 0;
        for (int m = 0; m < j; ++m) sum += e(j - 1 - m) * step[m];
        sum += h[section_b * 4] * step[j];
        out[j] = (c(j) * s0 + e(j) * s1) + sum;
      }
      for (int j = 0; j < 3; ++j) {
        u0 += h[(section_f + j) * 4] * step[j];
        u1 += h[(section_g + j) * 4] * step[j];
      }
      u1 += step[3];
      if (last) {
        s[0] = (h[section_p * 4] * s0 + h[section_q * 4] * s1) + u0;
        s[4] = (h[section_p * 4] * s1 + h[section_r * 4] * s0) + u1;
      }
      std::memcpy(step, out, sizeof step);
    }
    y[i] = step[now];
    if (last) std::fill_n(inputs, 4, 0.0);
    position = (position + 1) % 256;
    for (int k = 0; position == 0 && k < sections; ++k) {
      double* const s = states + JURN_section_at(sections, k, section_states);
      const double largest = std::max(std::fabs(s[0]), std::fabs(s[4]));
      const bool finite = std::isfinite(s[0]) && std::isfinite(s[4]);
      if (!finite || largest < 1e-30) s[0] = s[4] = 0;
    }
  }
}

void advance(SectionsStream_ID* stream, int frames, unsigned long long bad) {
  stream->position = (stream->position + frames) % 256;
  stream->bad += bad;
}

double convolve(const float* taps, int count, const short* newest) {
  double sum = 0.0;
  for (int j = 0; j < count; ++j) sum += static_cast<double>(taps[j]) * newest[-j];
  return sum;
}

}  // namespace ref
