// The base class of the elements that work in blocks of one length.
#pragma once

#include <gst/audio/audio.h>
#include <gst/base/gstbasetransform.h>

#include <memory>

#include "element.h"
#include "timed_stream.h"

namespace jurn::gst {
struct BlocksState;
}

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
 * element waits for whole blocks from then on and reports a latency of one block. The filter rings
 * on from one segment into the next one, as between two tracks without a gap.
 */
struct GstJurnBlocks {
  GstBaseTransform parent;
  jurn::gst::BlocksState* state;
};

struct GstJurnBlocksClass {
  GstBaseTransformClass parent_class;

  int most_block;  // frames
  /** What to tell the user when the properties ask for no filter. */
  const char* no_filter;
};

GType gst_jurn_blocks_get_type(void);

G_END_DECLS

namespace jurn::gst {

/** Gives an element its preparer of an OfferedFilter, once, and tells which it is. */
void set_preparer(GstJurnBlocks* self, std::unique_ptr<Preparer> preparer);
Preparer* preparer_of(GstJurnBlocks* self);

/** `caps` with this count of channels instead of its own, within `filter` if there is one. Caps of
 * the result, unlike those that are taken, say where each of more than two channels belongs. */
GstCaps* with_channels(GstCaps* caps, GstCaps* filter, int count, GstPadDirection of);
void add_pad_templates(GstElementClass* element_class, const char* sink, const char* source);
/** The properties that the base class installs for its subclasses, numbered from here on. */
enum BlocksProperty { kBlock = 100, kTail, kStatistics, kStatisticsInterval };
void install_blocks_properties(GObjectClass* object_class, int most_block);
/** Whether it was one of those. */
bool set_blocks_property(GObject* object, guint id, const GValue* value);
bool get_blocks_property(GObject* object, guint id, GValue* value);

}  // namespace jurn::gst
