// Changes one setting and prints what the device made of it, which may be another value.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "device/settingoptions.h"
#include "device/vocabulary.h"

namespace OX::cli {

namespace {

void run(Context& pContext, SettingOptions pOptions) {
  const SettingName* name = takeSetting(pOptions, 1);
  const int parameter = name ? name->parameter : parseParameter(pOptions.parameter);
  const bool isDefault = pOptions.words.front() == "default";
  // Parsed before connecting, so that a misspelt value is a usage error without a broker.
  const int value = isDefault ? 0 : parseValue(parameter, pOptions.words.front());
  OXSession session(pContext.broker, "set");
  OXSetting setting(session, parameter, name, pOptions.subscriber, pOptions.camera);
  if (isDefault)
    setting.setDefault();
  else
    setting.set(value);
  // Read back, to print what the device made of the value.
  const int taken = setting.get();
  if (!isDefault && taken != value)
    pContext.err.tryLine(fmt::format("asked for {}, got {}", valueText(parameter, value),
                                     valueText(parameter, taken)));
  pContext.out.line(valueLine(pOptions, name, taken));
}

}  // namespace

void addSet(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"set", "changes a setting and prints its new value",
                         "oxvideo set resolution kVGA --camera 0\n"
                         "  oxvideo set --parameter frame-rate 15 --camera 0\n"
                         "A subscriber has settings of its own, by its id (see oxvideo "
                         "subscribers):\n"
                         "  oxvideo call --keep OXVideoDevice subscribeCamera mine 0 1 11 15\n"
                         "  oxvideo set colorspace kHSY --subscriber mine\n"
                         "  oxvideo call OXVideoDevice unsubscribe mine"});
  const auto options = std::make_shared<SettingOptions>();
  addSettingOptions(verb, *options);
  verb.onRun([&pContext, options] { run(pContext, *options); });
}

}  // namespace OX::cli
