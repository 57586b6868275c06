// Who gets which frame, and when.
#include "stream_service.h"

namespace OX::test {
namespace {

class Delivering : public StreamService {};

TEST_F(Delivering, EachFrameOnceInOrder) {
  start();
  StreamClient client = connect();
  const std::string id = client.open("mine");
  EXPECT_EQ(shadeOf(client.call("next", id, 0)), -1);
  auto first = client.ask(id);
  auto second = client.ask(id);
  push(10);
  push(20);
  EXPECT_NE(shadeOf(first.get()), -1);
  push(30);
  EXPECT_NE(shadeOf(second.get()), -1);
  std::cout << client.call("statistics", id)[0].toInt() << " " << client.call("statistics", id)[1].toInt()<<"\n";
}

}  // namespace
}  // namespace OX::test
