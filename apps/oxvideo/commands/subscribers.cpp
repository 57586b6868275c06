// Who is subscribed, and who owns it: the first thing to look at when a camera runs faster or
// larger than anybody at hand asked for.
#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include <oxframework/oxerror.h>
#include "commands/commands.h"
#include "device/arrivals.h"
#include "device/status.h"
#include "device/vocabulary.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

struct Options {
  std::string remove;
  bool asJson = false;
};

/// "0,1": the entries of one column, one a camera.
template <typename Value, typename Text>
std::string joined(const std::vector<Value>& pValues, Text pText) {
  std::string result;
  for (const Value& value : pValues) result += (result.empty() ? "" : ",") + pText(value);
  return result;
}

template <typename Value, typename Convert>
OXJson array(const std::vector<Value>& pValues, Convert pConvert) {
  OXJson result = OXJson::array();
  for (const Value& value : pValues) result.append(pConvert(value));
  return result;
}

OXJson asJson(const SubscriberStatus& pSubscriber) {
  const auto number = [](int pNumber) { return pNumber; };
  OXJson json = {{"id", pSubscriber.id},
                 {"owner", pSubscriber.owner},
                 {"cameras", array(pSubscriber.cameras, number)},
                 {"sizes", array(pSubscriber.sizes, sizeText)},
                 {"colorspaces", array(pSubscriber.colorSpaces, colorSpaceName)},
                 {"fps", pSubscriber.fps},
                 {"camera_fps", array(pSubscriber.cameraFps, number)},
                 {"served", pSubscriber.served},
                 {"held", pSubscriber.held}};
  json.add("age_ms", pSubscriber.ageMs < 0 ? OXJson(nullptr) : OXJson(pSubscriber.ageMs));
  return json;
}

std::vector<std::string> row(const SubscriberStatus& pSubscriber) {
  const auto number = [](int pNumber) { return std::to_string(pNumber); };
  return {printable(pSubscriber.id),
          pSubscriber.owner.empty() ? "-" : printable(pSubscriber.owner),
          joined(pSubscriber.cameras, number),
          joined(pSubscriber.sizes, sizeText),
          joined(pSubscriber.colorSpaces, colorSpaceName),
          fmt::format("{} of {}", pSubscriber.fps, joined(pSubscriber.cameraFps, number)),
          std::to_string(pSubscriber.served),
          std::to_string(pSubscriber.held),
          pSubscriber.ageMs < 0 ? "never" : fmt::format("{:.1f} s ago", pSubscriber.ageMs / 1000.)};
}

void list(Context& pContext, const std::vector<SubscriberStatus>& pSubscribers, bool pAsJson) {
  if (pAsJson) {
    OXJson json = OXJson::array();
    for (const SubscriberStatus& subscriber : pSubscribers) json.append(asJson(subscriber));
    pContext.out.line(json.text());
    return;
  }
  OXTable table(
      {"ID", "OWNER", "CAMERAS", "SIZES", "COLOUR SPACES", "FPS", "SERVED", "HELD", "LAST"});
  for (const SubscriberStatus& subscriber : pSubscribers) table.addRow(row(subscriber));
  pContext.out.write(table.text(pContext.style()));
}

/// The device's own error does not say which ids there are.
void checkId(const std::vector<SubscriberStatus>& pSubscribers, const std::string& pId) {
  std::vector<std::string> ids;
  ids.reserve(pSubscribers.size());
  for (const SubscriberStatus& subscriber : pSubscribers) ids.push_back(printable(subscriber.id));
  if (std::any_of(pSubscribers.begin(), pSubscribers.end(),
                  [&](const SubscriberStatus& subscriber) { return subscriber.id == pId; }))
    return;
  throw OXFailure(
      fmt::format("there is no subscriber \"{}\"\n  {}", printable(pId),
                  ids.empty() ? "nobody is subscribed" : "subscribed are: " + join(ids)));
}

void run(Context& pContext, const Options& pOptions) {
  OXSession session(pContext.broker, "subscribers");
  const auto subscribers = querySubscribers(session);
  if (pOptions.remove.empty()) {
    if (!subscribers)
      throw OXFailure(
          "this broker can't tell who is subscribed: it has no module OXVideoStatus\n"
          "  it is older than this program, or has no video device");
    return list(pContext, *subscribers, pOptions.asJson);
  }
  if (subscribers) checkId(*subscribers, pOptions.remove);
  session.device("unsubscribe", pOptions.remove);
  pContext.err.tryLine("removed " + printable(pOptions.remove));
  if (pOptions.asJson) pContext.out.line(OXJson({{"removed", pOptions.remove}}).text());
}

}  // namespace

void addSubscribers(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"subscribers", "lists who takes images, and ends a subscription",
               "oxvideo subscribers\n"
               "  oxvideo subscribers --remove robot_2\n"
               "FPS is the rate asked for and what the cameras run at; HELD are images that were "
               "not given back.\n"
               "A subscriber that is removed while it holds an image gets 10 seconds to give it "
               "back."});
  const auto options = std::make_shared<Options>();
  verb.option("--remove", options->remove, "end the subscription of this id").valueName("ID");
  verb.flag("--json", options->asJson, "print a JSON array");
  verb.onRun([&pContext, options] { run(pContext, *options); });
}

}  // namespace OX::cli
