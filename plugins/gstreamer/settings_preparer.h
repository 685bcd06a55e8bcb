// A preparer whose element's properties are one value.
#pragma once

#include <glib.h>

#include <mutex>

#include "preparer.h"

namespace jurn::gst {

/** Keeps what the properties say; where a running stream cannot have it, they return to what runs.
 */
template <typename Settings>
class SettingsPreparer : public Preparer {
 public:
  explicit SettingsPreparer(GstElement* element, const Settings& first = {})
      : Preparer(element), settings_(first) {}

  /** Any thread: lets `change` work on the settings, and asks for the filter. */
  template <typename Change>
  void change(Change change) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      change(&settings_);
      ++version_;
    }
    request();
  }
  Settings settings() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return settings_;
  }

 protected:
  /** On the worker, first of all: what to prepare. */
  const Settings& next() {
    const std::lock_guard<std::mutex> lock(mutex_);
    tried_ = settings_;
    tried_version_ = version_;
    return tried_;
  }

  void settled(bool well) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (well)
      good_ = tried_;
    else if (version_ == tried_version_)
      settings_ = good_;
  }

 private:
  mutable std::mutex mutex_;
  Settings settings_;
  guint64 version_ = 0;  // changes of the settings

  // The worker's own.
  Settings tried_, good_;
  guint64 tried_version_ = 0;
};

}  // namespace jurn::gst
