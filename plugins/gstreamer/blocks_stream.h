// The state of an element that works in blocks, and what its stream does with buffers and events.
#pragma once

#include <atomic>
#include <memory>

#include "blocks.h"

namespace jurn::gst {

struct BlocksState {
  std::unique_ptr<Preparer> preparer;
  std::atomic<int> wanted_block{0};
  std::atomic<bool> keeps_tail{true};
  std::atomic<bool> regroups{false};
  std::atomic<int> late{0};  // frames by which the filter is, as those of linear phase are
  Statistics statistics;

  // The streaming thread's own.
  std::unique_ptr<TimedStream> stream;  // from the first frame on
  GstBufferPool* pool = nullptr;
  std::size_t pool_bytes = 0;
  bool started = false;        // since the last silence
  bool is_new_segment = true;  // until its first frame
};

/** Makes buffers into blocks: the base transform's generate_output. */
GstFlowReturn generate_output(GstBaseTransform* transform, GstBuffer** result);
/** The base transform's sink_event, up to what its parent does. Null when the event is used up. */
GstEvent* handle_event(GstJurnBlocks* self, GstEvent* event);
void free_pool(BlocksState* state);

}  // namespace jurn::gst
