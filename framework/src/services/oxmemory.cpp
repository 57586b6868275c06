// Events. Subscriptions are copied out of the lock before callbacks run, so that a callback may
// subscribe, unsubscribe or raise; one that subscribes during an event is called from the next one.
#include <algorithm>

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxservices.h>
#include <oxvalue/detail/publication.h>

namespace OX {
namespace {

// Remote callers may subscribe whatever they like, so the number of subscriptions is limited.
constexpr std::size_t kMaxSubscriptions = 4096;
// A callback may raise events itself; one that answers an event with the same event would never
// end.
constexpr int kMaxDepth = 16;

// Per thread, since callbacks run on the thread that raises.
thread_local int tDepth = 0;

class DepthCount {
 public:
  DepthCount() { ++tDepth; }
  ~DepthCount() { --tDepth; }
  DepthCount(const DepthCount&) = delete;
  DepthCount& operator=(const DepthCount&) = delete;
};

void report(int pLevel, const std::string& pText) {
  ki::log::log(pLevel, "framework.memory", pText, "", "raiseEvent", 0);
}

std::vector<OXPublication<OXMemory>> publications() {
  return {
      {.name = "subscribeToEvent",
       .description =
           "Subscribes a method to an event. It is called each time the event is raised, with the "
           "event's name, its value and the name of the subscribed module. Subscribing again "
           "replaces the method",
       .method = operation(&OXMemory::subscribeToEvent),
       .parameters = {{"event", "name of the event, which need not have been raised before"},
                      {"module",
                       "name of the module to call, or the name that a client has set with "
                       "OXBroker.setClientName"},
                      {"callback", "name of the method to call on it"}},
       .examples = {{"C++",
                     "memory.subscribeToEvent(\"ClientDisconnected\", getName(), "
                     "\"onClientGone\");"}}},
      {.name = "unsubscribeToEvent",
       .description = "Ends a subscription; does nothing when there is none",
       .method = operation(&OXMemory::unsubscribeToEvent),
       .parameters = {{"event", "name of the event"},
                      {"module", "name of the module that subscribed"}},
       .examples = {{"C++", "memory.unsubscribeToEvent(\"ClientDisconnected\", getName());"}}},
      {.name = "getEventList",
       .description = "Names the events that have subscribers",
       .method = operation(&OXMemory::getEventList),
       .result = {"events", "array of names in alphabetical order"},
       .examples = {{"shell", "oxvideo call OXMemory getEventList"}}},
      {.name = "getSubscribers",
       .description = "Names the modules that have subscribed to an event",
       .method = operation(&OXMemory::getSubscribers),
       .parameters = {{"event", "name of the event"}},
       .result = {"modules",
                  "array of names, the first subscriber first; empty for an unknown event"},
       .examples = {{"shell", "oxvideo call OXMemory getSubscribers ClientDisconnected"}}},
      {.name = "raiseEvent",
       .description =
           "Calls all subscribers of an event, one after the other, and returns when all have been "
           "called. One that fails does not keep the others from being called; one that no longer "
           "exists is removed",
       .method = operation(&OXMemory::raiseEvent),
       .parameters = {{"event", "name of the event"}, {"value", "value to hand to subscribers"}},
       .examples = {{"C++", "memory.raiseEvent(\"BallSeen\", OXValue::array(120, 87));"},
                    {"shell", "oxvideo call OXMemory raiseEvent BallSeen '[120, 87]'"}}},
  };
}

}  // namespace

OXMemory::OXMemory(boost::shared_ptr<OXBroker> pBroker) : OXModule(std::move(pBroker), "OXMemory") {
  setModuleDescription(
      "Events: modules and clients subscribe by name and need not know who raises them");
  addModuleExample("C++",
                   "OXMemoryProxy memory(broker);\n"
                   "memory.subscribeToEvent(\"BallSeen\", getName(), \"onBallSeen\");");
  publish(bindPublications(this, "OXMemory", publications()));
}

OXMemory::~OXMemory() = default;

void OXMemory::subscribeToEvent(const std::string& pEventName, const std::string& pModuleName,
                                const std::string& pCallbackName) {
  if (pEventName.empty() || pModuleName.empty() || pCallbackName.empty())
    raiseError("OXMemory", "subscribeToEvent",
               "The names of event, module and callback must not be empty");
  const detail::MutexLock hold(fGuard);
  // Counted each time: subscribing is rare, and a counter would have to be kept right everywhere.
  std::size_t total = 0;
  for (auto& [event, subscriptions] : fSubscriptions)
    for (Subscription& subscription : subscriptions) {
      ++total;
      if (event != pEventName || subscription.module != pModuleName) continue;
      subscription.callback = pCallbackName;
      return;
    }
  if (total >= kMaxSubscriptions)
    raiseError("OXMemory", "subscribeToEvent",
               "There are " + std::to_string(total) + " subscriptions already, which is the limit");
  fSubscriptions[pEventName].push_back({pModuleName, pCallbackName});
}

void OXMemory::unsubscribeToEvent(const std::string& pEventName, const std::string& pModuleName) {
  const detail::MutexLock hold(fGuard);
  xRemoveSubscription(pEventName, pModuleName);
}

void OXMemory::xRemoveSubscription(const std::string& pEventName, const std::string& pModuleName) {
  const auto found = fSubscriptions.find(pEventName);
  if (found == fSubscriptions.end()) return;
  std::erase_if(found->second,
                [&](const Subscription& pOne) { return pOne.module == pModuleName; });
  if (found->second.empty()) fSubscriptions.erase(found);
}

void OXMemory::raiseEvent(const std::string& pEventName, const OXValue& pValue) {
  const boost::shared_ptr<OXBroker> broker = getParentBroker();
  if (!broker) raiseError("OXMemory", "raiseEvent", "The broker has ended");
  if (tDepth >= kMaxDepth)
    raiseError("OXMemory", "raiseEvent",
               "Event \"" + pEventName + "\" was raised by a callback of a callback, " +
                   std::to_string(kMaxDepth) + " deep; it is not raised again");
  const DepthCount depth;
  std::vector<Subscription> subscriptions;
  {
    const detail::MutexLock hold(fGuard);
    if (const auto found = fSubscriptions.find(pEventName); found != fSubscriptions.end())
      subscriptions = found->second;
  }
  // No lock is held from here on: a callback may subscribe, unsubscribe or raise.
  for (const Subscription& subscription : subscriptions)
    xNotify(*broker, pEventName, pValue, subscription);
}

void OXMemory::xNotify(OXBroker& pBroker, const std::string& pEventName, const OXValue& pValue,
                       const Subscription& pSubscription) {
  try {
    pBroker.notify(pSubscription.module, pSubscription.callback,
                   OXValue::array(pEventName, pValue, pSubscription.module));
  } catch (const OXError& error) {
    // Asked under the lock, so that a client that has come back and subscribed is kept.
    detail::MutexLock hold(fGuard);
    const bool gone = !pBroker.canNotify(pSubscription.module);
    if (gone) xRemoveSubscription(pEventName, pSubscription.module);
    hold.unlock();
    if (gone)
      report(ki::log::kInfo, "\"" + pSubscription.module +
                                 "\" no longer exists; its subscription to event \"" + pEventName +
                                 "\" was removed");
    else
      report(ki::log::kError, "\"" + pSubscription.module + "\" failed to handle event \"" +
                                  pEventName + "\": " + error.toString());
  }
}

OXValue OXMemory::getEventList() {
  const detail::MutexLock hold(fGuard);
  OXValue::Array names;
  for (const auto& [event, subscriptions] : fSubscriptions) names.emplace_back(event);
  return names;
}

OXValue OXMemory::getSubscribers(const std::string& pEventName) {
  const detail::MutexLock hold(fGuard);
  OXValue::Array names;
  if (const auto found = fSubscriptions.find(pEventName); found != fSubscriptions.end())
    for (const Subscription& subscription : found->second) names.emplace_back(subscription.module);
  return names;
}

}  // namespace OX
