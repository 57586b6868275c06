/// The turn of a subscriber, from its look-up to the end of a scope.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "claim.h"
#include "oxvisionvideoinput.h"

namespace OX {

/// Checks the subscriber and throws as xSubscriber() does, also when it is removed while another
/// call of it is waited for, with the lock paused. fVisionModulesLock is held for writing at both
/// ends. Nobody removes the subscriber, changes its wishes or ends its holds meanwhile.
class OXVisionVideoInput::SubscriberTurn {
 public:
  SubscriberTurn(const OXVisionVideoInput& pDevice, const std::string& pId, Family pFamily,
                 const report::SubscriberTexts& pTexts,
                 OXSourceLocation pWhere = OXSourceLocation::current())
      OX_REQUIRES(pDevice.fVisionModulesLock);
  ~SubscriberTurn();
  SubscriberTurn(const SubscriberTurn&) = delete;
  SubscriberTurn& operator=(const SubscriberTurn&) = delete;

  const boost::shared_ptr<VisionModuleInfo>& subscriber() const { return fSubscriber; }

 private:
  boost::shared_ptr<VisionModuleInfo> fSubscriber;
};

}  // namespace OX
