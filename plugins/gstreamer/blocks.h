// The base class of the elements that work in blocks of one length.
#pragma once

#include <gst/audio/audio.h>
#include <gst/base/gstbasetransform.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "element.h"

namespace jurn::gst {

/** A stream of blocks. Its owner is the streaming thread. */
class Blocks {
 public:
  Blocks(int in, int out, int frames) : inputs(in), outputs(out), block(frames) {}
  virtual ~Blocks() = default;

  /** One block of interleaved samples of the negotiated format; `time` is its stream time, if there
   * is one. */
  virtual void process(const void* in, void* out, GstClockTime time) = 0;
  virtual void reset() = 0;
  /** Frames that ring on. */
  virtual std::int64_t tail() const = 0;

  const int inputs, outputs, block;
};

/** What is negotiated. */
struct Caps {
  int rate = 0;
  int inputs = 0, outputs = 0;
  bool is_float = false;
};

struct BlocksState;

}  // namespace jurn::gst

G_BEGIN_DECLS

#define GST_TYPE_JURN_BLOCKS (gst_jurn_blocks_get_type())
#define GST_JURN_BLOCKS(object) \
  (G_TYPE_CHECK_INSTANCE_CAST((object), GST_TYPE_JURN_BLOCKS, GstJurnBlocks))
#define GST_JURN_BLOCKS_CLASS(klass) \
  (G_TYPE_CHECK_CLASS_CAST((klass), GST_TYPE_JURN_BLOCKS, GstJurnBlocksClass))
#define GST_JURN_BLOCKS_GET_CLASS(object) \
  (G_TYPE_INSTANCE_GET_CLASS((object), GST_TYPE_JURN_BLOCKS, GstJurnBlocksClass))

/**
 * Regroups buffers of any length into blocks. The samples and their times stay what they were: when
 * every buffer is a multiple of the block there is no latency; with the first one that is not, the
 * element waits for whole blocks from then on and reports a latency of one block.
 */
struct GstJurnBlocks {
  GstBaseTransform parent;
  jurn::gst::BlocksState* state;
};

struct GstJurnBlocksClass {
  GstBaseTransformClass parent_class;

  /** Makes the stream for caps and the length of the first buffer. Throws a sentence for the user.
   */
  std::unique_ptr<jurn::gst::Blocks> (*make)(GstJurnBlocks* self, const jurn::gst::Caps& caps,
                                             int frames);
};

GType gst_jurn_blocks_get_type(void);

G_END_DECLS

namespace jurn::gst {

/** The caps of the running stream; a rate of 0 when there is none. Any thread. */
Caps current_caps(GstJurnBlocks* self);
/** The block length of the running stream, 0 when there is none. Any thread. */
int current_block(GstJurnBlocks* self);
/** The block length for a first buffer of `frames` frames: the property's; or these frames, or the
 * largest part of them that a block of at most `most` can have. */
int block_for(GstJurnBlocks* self, int frames, int most);

/** `caps` with this count of channels instead of its own, within `filter` if there is one. Caps of
 * the result, unlike those that are taken, say where each of more than two channels belongs. */
GstCaps* with_channels(GstCaps* caps, GstCaps* filter, int count, GstPadDirection of);
void add_pad_templates(GstElementClass* element_class, const char* sink, const char* source);
/** Ends the running stream, whose parts belong to a subclass, before the subclass does. */
void end_stream(GstJurnBlocks* self);

/** The properties that the base class installs for its subclasses, numbered from here on. */
enum BlocksProperty { kBlock = 100, kTail, kStatistics, kStatisticsInterval };
void install_blocks_properties(GObjectClass* object_class);
/** Whether it was one of those. */
bool set_blocks_property(GObject* object, guint id, const GValue* value);
bool get_blocks_property(GObject* object, guint id, GValue* value);

}  // namespace jurn::gst
