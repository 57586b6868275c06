// Prints one setting, in the words that set takes.
#include <memory>

#include "commands/commands.h"
#include "device/settingoptions.h"
#include "device/vocabulary.h"

namespace OX::cli {

namespace {

void run(Context& pContext, SettingOptions pOptions) {
  const SettingName* name = takeSetting(pOptions, 0);
  // Before connecting, so that an unknown name is a usage error without a broker.
  const int parameter = name ? name->parameter : parseParameter(pOptions.parameter);
  OXSession session(pContext.broker, "get");
  OXSetting setting(session, parameter, name, pOptions.subscriber, pOptions.camera);
  pContext.out.line(valueLine(pOptions, name, setting.get()));
}

}  // namespace

void addGet(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"get", "prints a setting of a camera or a subscriber",
                         "oxvideo get resolution --camera 0\n"
                         "  oxvideo get --parameter buffers --camera 0\n"
                         "A subscriber has settings of its own, by its id (see oxvideo "
                         "subscribers):\n"
                         "  oxvideo call --keep OXVideoDevice subscribeCamera mine 0 1 11 15\n"
                         "  oxvideo get fps --subscriber mine\n"
                         "  oxvideo call OXVideoDevice unsubscribe mine"});
  const auto options = std::make_shared<SettingOptions>();
  addSettingOptions(verb, *options);
  verb.onRun([&pContext, options] { run(pContext, *options); });
}

}  // namespace OX::cli
