#pragma once

#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo {

/// The recorder's statement that its window filter is in force. Starts untrustworthy; read and written under its own lock.
class CaptureFilterTrustFlag {
 public:
  bool trustworthy() const { return value_.get(); }
  void setTrustworthy(bool value) { value_.set(value); }

 private:
  LockedValue<bool> value_;
};

}  // namespace halvo
