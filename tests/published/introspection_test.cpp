// Compares what introspection shows with a listing that was written by hand from the documentation,
// independently of the code: every name, flag, type and text, slips included, in the order of
// publication.
#include "service.h"
#include "tables.h"

namespace OX::test {
namespace {

Json textOf(const OXValue& pValue) {
  if (pValue.isInt()) return pValue.toInt();
  if (pValue.isString()) return pValue.toString();
  Json list = Json::array();
  for (const OXValue& element : pValue.toArray()) list.push_back(textOf(element));
  return list;
}

std::string linesOf(const Json& pJson) { return pJson.dump(1); }

class Introspection : public testing::TestWithParam<Service::Camera> {
 protected:
  CaptureLog fLog;
  Service fService{GetParam()};
};

TEST_P(Introspection, ShowsTheListedPublications) {
  const Json listing = table("publications.json")["publications"];
  const OXValue methods =
      fService.client->call("OXBroker", "getMethodList", OXValue::array("OXVideoDevice"));
  ASSERT_EQ(listing.size(), 84u);
  ASSERT_GE(methods.getSize(), 84);
  for (int i = 0; i < 84; ++i) {
    const Json& expected = listing[static_cast<std::size_t>(i)];
    const Json shown = textOf(methods[i]);
    const Json fields = Json::array(
        {expected["name"], "OXVisionVideoInput", expected["description"], expected["flags"],
         expected["parameters"], expected["return"], expected["examples"]});
    EXPECT_EQ(linesOf(shown), linesOf(fields)) << "publication " << i;
  }
  // A file camera's own methods follow those of the device.
  EXPECT_EQ(methods.getSize(), GetParam() == Service::Camera::File ? 84 + 7 : 84);
}

TEST_P(Introspection, DescribesTheModule) {
  const Json expected = table("publications.json")["module"];
  const OXValue shown =
      fService.client->call("OXBroker", "getModuleDescription", OXValue::array("OXVideoDevice"));
  EXPECT_EQ(linesOf(textOf(shown)),
            linesOf(Json::array({expected["description"], expected["examples"]})));
}

INSTANTIATE_TEST_SUITE_P(Cameras, Introspection,
                         testing::Values(Service::Camera::Simulator, Service::Camera::File),
                         [](const auto& pInfo) {
                           return std::string(
                               pInfo.param == Service::Camera::File ? "FileCam" : "SimulatorCam");
                         });

}  // namespace
}  // namespace OX::test
