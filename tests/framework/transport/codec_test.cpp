// The bytes of the wire without a socket: messages sent, received and refused.
#include "transport/codec.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <msgpack.hpp>
#include <random>
#include <string>
#include <vector>

#include "transport/address.h"
#include "transport/messagescanner.h"
#include "transport/receivebuffer.h"

namespace OX::test {
namespace {

using namespace wire;

const unsigned char* bytesOf(const std::string& pText) {
  return reinterpret_cast<const unsigned char*>(pText.data());
}

std::string flat(const OutgoingMessage& pMessage) {
  std::vector<OutgoingMessage::Piece> pieces;
  pMessage.appendPieces(pieces);
  std::string bytes;
  for (const auto& piece : pieces) bytes.append(static_cast<const char*>(piece.data), piece.size);
  EXPECT_EQ(bytes.size(), pMessage.getSize());
  return bytes;
}

std::string hex(const std::string& pBytes) {
  std::string text;
  char digits[4];
  for (const char byte : pBytes) {
    std::snprintf(digits, sizeof digits, "%02x ", static_cast<unsigned char>(byte));
    text += digits;
  }
  if (!text.empty()) text.pop_back();
  return text;
}

std::string unhex(const std::string& pText) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < pText.size(); i += 3)
    bytes += static_cast<char>(std::stoi(pText.substr(i, 2), nullptr, 16));
  return bytes;
}

IncomingMessage decodeCopy(const std::string& pBytes) {
  const auto block = boost::make_shared<std::string>(pBytes);
  return decode(block, bytesOf(*block), block->size());
}

OXValue binary(const std::string& pBytes) {
  OXValue value;
  value.SetBinary(pBytes.data(), static_cast<int>(pBytes.size()));
  return value;
}

OXValue nested(int pLevels) {
  OXValue value = OXValue::Array();
  for (int i = 1; i < pLevels; ++i) value = OXValue::array(value);
  return value;
}

std::string failureOf(const std::function<void()>& pAction) {
  try {
    pAction();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "none";
}

std::string scanFailure(const std::string& pBytes, const OXWireLimits& pLimits = {}) {
  return failureOf([&] { MessageScanner(pLimits).scan(bytesOf(pBytes), pBytes.size()); });
}

TEST(Codec, WritesTheBytesOfTheFormat) {
  const struct {
    OXValue value;
    const char* bytes;
  } kCases[] = {
      {OXValue(), "c0"},
      {true, "c3"},
      {false, "c2"},
      {127, "7f"},
      {-32, "e0"},
      {128, "cc 80"},
      {-33, "d0 df"},
      {INT_MAX, "ce 7f ff ff ff"},
      {INT_MIN, "d2 80 00 00 00"},
      {1.5f, "ca 3f c0 00 00"},
      {1.0f, "ca 3f 80 00 00"},
      {"kVGA", "a4 6b 56 47 41"},
      {OXValue::array(1, "a"), "92 01 a1 61"},
      {OXValue::Array(), "90"},
      {binary("\x01\xff"), "c4 02 01 ff"},
      {binary(""), "c4 00"},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(hex(flat(encodeAnswer(7, test.value, {}))), std::string("94 01 07 c0 ") + test.bytes);

  EXPECT_EQ(hex(flat(encodeRequest(200, "A", "b", OXValue::array(1), {}))),
            "94 00 cc c8 a3 41 2e 62 91 01");
  EXPECT_EQ(hex(flat(encodeNotification("A", "b", OXValue::Array(), {}))), "93 02 a3 41 2e 62 90");
}

TEST(Codec, ReadsEveryFormOfAValue) {
  const struct {
    const char* bytes;
    OXValue value;
    const char* why;
  } kCases[] = {
      {"cd 00 05", 5, "an integer longer than it need be"},
      {"d3 ff ff ff ff 80 00 00 00", INT_MIN, "the least, in 64 bits"},
      {"cf 00 00 00 00 7f ff ff ff", INT_MAX, "the largest, in 64 bits"},
      {"cb 3f f8 00 00 00 00 00 00", 1.5f, "a double"},
      {"cb 3f b9 99 99 99 99 99 9a", 0.1f, "a double that is rounded"},
      {"cb 7f ef ff ff ff ff ff ff", INFINITY, "a double beyond a float"},
      {"d9 01 61", "a", "a string with a longer length"},
      {"dc 00 01 c3", OXValue::array(true), "an array with a longer length"},
      {"c6 00 00 00 01 2a", binary("*"), "a binary with a longer length"},
  };
  for (const auto& test : kCases) {
    const IncomingMessage message =
        decodeCopy(unhex(std::string("93 02 a3 41 2e 62 91 ") + test.bytes));
    EXPECT_EQ(message.value, OXValue::array(test.value)) << test.why;
    EXPECT_EQ(message.problem, "") << test.why;
  }
}

TEST(Codec, NamesArgumentsThatItCannotUse) {
  const struct {
    const char* bytes;
    const char* problem;
  } kCases[] = {
      {"91 ce 80 00 00 00",
       "Argument 1 is or holds the integer 2147483648, which is outside 32 bits"},
      {"92 01 d3 ff ff ff ff 7f ff ff ff",
       "Argument 2 is or holds the integer -2147483649, which is outside 32 bits"},
      {"91 91 cf ff ff ff ff ff ff ff ff",
       "Argument 1 is or holds the integer 18446744073709551615, which is outside 32 bits"},
      {"91 81 a1 61 01", "Argument 1 is or holds a map, which is not supported here"},
      {"91 d4 01 00", "Argument 1 is or holds an extension type, which is not supported here"},
  };
  for (const auto& test : kCases) {
    const IncomingMessage message =
        decodeCopy(unhex(std::string("94 00 05 a3 41 2e 62 ") + test.bytes));
    EXPECT_EQ(message.problem, test.problem);
    EXPECT_EQ(message.id, 5u) << "it can still be answered";
  }
}

TEST(Codec, ReadsAndSplitsMethodNamesAlsoAsBinary) {
  const struct {
    const char* bytes;
    const char* name;
  } kCases[] = {
      {"93 02 a3 41 2e 62 90", "A|b"},
      {"93 02 c4 03 41 2e 62 90", "A|b"},
      {"93 02 a5 41 2e 62 2e 63 90", "A|b.c"},
      {"93 02 a1 41 90", "A|"},
      {"93 02 a0 90", "|"},
  };
  for (const auto& test : kCases) {
    const IncomingMessage message = decodeCopy(unhex(test.bytes));
    EXPECT_EQ(message.target + "|" + message.method, test.name) << test.bytes;
  }
}

TEST(Codec, RefusesMalformedMessages) {
  const char* const kCases[] = {"c0",
                                "47",
                                "90",
                                "80",
                                "91 00",
                                "93 00 01 a1 41",
                                "94 03 01 a1 41 90",
                                "94 ff 01 a1 41 90",
                                "94 00 a1 41 a1 41 90",
                                "94 00 cf 00 00 00 01 00 00 00 00 a1 41 90",
                                "94 00 01 05 90",
                                "94 00 01 a1 41 80",
                                "94 00 01 a1 41 c0",
                                "93 02 a1 41 05",
                                "93 01 05 c0",
                                "92 02 a1"};
  for (const char* const bytes : kCases)
    EXPECT_THROW(decodeCopy(unhex(bytes)), WireViolation) << bytes;
}

TEST(Codec, CarriesAnErrorWithAllItsFields) {
  const OXError error("VideoInput", "subscribe()", "Not a valid \"name\"\n", "vision/x",
                      4000000000u);
  const IncomingMessage message = decodeCopy(flat(encodeError(9, error)));
  ASSERT_TRUE(message.error);
  EXPECT_EQ(message.id, 9u);
  EXPECT_EQ(message.error->toString(), error.toString());
  EXPECT_EQ(message.error->getLine(), error.getLine());

  const IncomingMessage foreign = decodeCopy(unhex("94 01 02 a4 6f 6f 70 73 c0"));
  ASSERT_TRUE(foreign.error);
  EXPECT_STREQ(foreign.error->what(), "oops") << "an error that is only a text";
}

TEST(Codec, NeverCopiesLargeBinaries) {
  const OXValue image = binary(std::string(600000, 'p'));
  std::vector<OutgoingMessage::Piece> pieces;
  const OutgoingMessage message = encodeAnswer(1, OXValue::array(1, image, 2), {});
  message.appendPieces(pieces);
  ASSERT_EQ(pieces.size(), 3u);
  EXPECT_EQ(pieces[1].data, image.GetBinary());

  const auto block = boost::make_shared<std::string>(flat(message));
  const IncomingMessage received = decode(block, bytesOf(*block), block->size());
  const char* const begin = static_cast<const char*>(received.value[1].GetBinary());
  EXPECT_TRUE(begin > block->data() && begin < block->data() + block->size());
}

TEST(Codec, RefusesToSendBeyondTheLimits) {
  OXWireLimits limits;
  limits.maxMessageBytes = 1000;
  limits.maxArrayElements = 10;
  limits.maxNesting = 4;
  const struct {
    OXValue value;
    const char* failure;
  } kCases[] = {
      {binary(std::string(900, 'x')), "none"},
      {binary(std::string(1000, 'x')),
       "Cannot be sent: message of at least 1007 bytes (limit 1000)"},
      {std::string(2000, 'x'), "Cannot be sent: message of at least 2007 bytes (limit 1000)"},
      {std::vector<int>(10), "none"},
      {std::vector<int>(11), "Cannot be sent: array of 11 elements (limit 10)"},
      {nested(3), "none"},
      {nested(4), "Cannot be sent: nesting of at least 5 arrays (limit 4)"},
      {OXValue::array(std::vector<int>(8), std::vector<int>(8)),
       "Cannot be sent: message of at least 22 elements (limit 15)"},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(failureOf([&] { encodeAnswer(1, test.value, limits); }), test.failure);
}

TEST(Scanner, RefusesMessagesBeyondTheLimitsAtOnce) {
  const std::string kMany(400000, '\x90');
  const struct {
    std::string bytes;
    const char* failure;
    const char* why;
  } kCases[] = {
      {"\xc1", "malformed message: the byte 0xc1 starts no value", "never used"},
      {unhex("c6 80 00 00 00"), "message of at least 2147483653 bytes (limit 16777216)", "2 GiB"},
      {unhex("db ff ff ff ff"), "message of at least 4294967300 bytes (limit 16777216)", "4 GiB"},
      {unhex("c9 ff ff ff ff"), "message of at least 4294967301 bytes (limit 16777216)", "ext"},
      {unhex("dc 10 01"), "array of 4097 elements (limit 4096)", "array"},
      {unhex("dd ff ff ff ff"), "array of 4294967295 elements (limit 4096)", "longest array"},
      {unhex("df ff ff ff ff"), "map of 4294967295 elements (limit 4096)", "longest map"},
      {std::string(10000, '\x91'), "nesting of at least 33 arrays (limit 32)", "deep"},
      {std::string(32, '\x91') + '\x01', "none", "as deep as may be"},
      {std::string(32, '\x91') + '\x90', "nesting of at least 33 arrays (limit 32)", "empty ones"},
      {unhex("dc 10 00") + std::string(4096, '\x05'), "none", "as long as may be"},
  };
  for (const auto& test : kCases) EXPECT_EQ(scanFailure(test.bytes), test.failure) << test.why;

  // 4096 arrays of 4096 one-byte elements fit into a message, but not as values into memory.
  std::string many = unhex("dc 10 00");
  for (int i = 0; i < 4000; ++i) many += unhex("dc 10 00") + std::string(4096, '\xc0');
  EXPECT_EQ(scanFailure(many), "message of at least 266240 elements (limit 262144)");
}

TEST(Scanner, TellsHowManyBytesAreMissing) {
  MessageScanner scanner{OXWireLimits()};
  const std::string head = unhex("94 00 01 a1 41 91 c6 00 01 00 00");
  EXPECT_FALSE(scanner.scan(bytesOf(head), head.size() - 1));
  EXPECT_EQ(scanner.getSize(), 6u) << "the length is not complete";
  EXPECT_FALSE(scanner.scan(bytesOf(head), head.size()));
  EXPECT_EQ(scanner.getSize(), head.size() + 65536);
  const std::string all = head + std::string(65536, 'x');
  EXPECT_FALSE(scanner.scan(bytesOf(all), all.size() - 1));
  EXPECT_TRUE(scanner.scan(bytesOf(all), all.size()));
}

/// The result of the format's own library for the bytes, in the form of the scanner's.
std::string judgeByLibrary(const std::string& pBytes) {
  try {
    std::size_t end = 0;
    msgpack::unpack(pBytes.data(), pBytes.size(), end);
    return std::to_string(end);
  } catch (const msgpack::insufficient_bytes&) {
    return "more";
  } catch (const msgpack::unpack_error&) {
    return "malformed";
  }
}

std::string judgeByScanner(const std::string& pBytes) {
  MessageScanner scanner{OXWireLimits()};
  try {
    return scanner.scan(bytesOf(pBytes), pBytes.size()) ? std::to_string(scanner.getSize())
                                                        : "more";
  } catch (const WireViolation& violation) {
    return std::string(violation.what()).starts_with("malformed") ? "malformed" : "limit";
  }
}

TEST(Scanner, FindsTheSameEndAsTheLibrary) {
  std::mt19937 random(20260101);
  std::map<std::string, int> kinds;
  for (int round = 0; round < 200000; ++round) {
    std::string bytes;
    // Heads are likelier than in plain noise, so that whole nested values occur.
    for (std::size_t size = random() % 24; bytes.size() < size;)
      bytes += static_cast<char>(random() % 3 ? 0x80 + random() % 0x60 : random() % 4);
    const std::string scanner = judgeByScanner(bytes);
    ++kinds[scanner == "more" || scanner == "malformed" || scanner == "limit" ? scanner : "end"];
    if (scanner == "limit") continue;
    ASSERT_EQ(scanner, judgeByLibrary(bytes)) << hex(bytes);
  }
  for (const char* const kind : {"end", "more", "malformed", "limit"})
    EXPECT_GT(kinds[kind], 1000) << kind << ": the bytes no longer show it";
}

/// Random values, deep and wide, with binaries below and above the sizes that are treated
/// differently.
OXValue randomValue(std::mt19937& pRandom, int pLevels) {
  switch (pRandom() % (pLevels > 0 ? 8 : 6)) {
    case 0:
      return OXValue();
    case 1:
      return pRandom() % 2 == 0;
    case 2:
      return static_cast<int>(pRandom() >> (pRandom() % 32));
    case 3:
      return static_cast<float>(static_cast<int>(pRandom())) / 1024;
    case 4:
      return std::string(pRandom() % 4 ? pRandom() % 40 : pRandom() % 70000, 's');
    case 5:
      return binary(std::string(pRandom() % 4 ? pRandom() % 600 : pRandom() % 70000,
                                static_cast<char>(pRandom())));
    default:
      break;
  }
  OXValue::Array elements(pRandom() % 20);
  for (OXValue& element : elements) element = randomValue(pRandom, pLevels - 1);
  return elements;
}

TEST(Codec, RoundTripsInPiecesOfAnySize) {
  const unsigned int seed = 20260102;
  std::mt19937 random(seed);
  std::vector<OXValue> sent;
  std::string stream;
  for (int i = 0; i < 400; ++i) {
    sent.push_back(OXValue::array(randomValue(random, 5), randomValue(random, 1)));
    stream += flat(encodeRequest(random(), "Module", "method", sent.back(), {}));
  }

  // The values are kept, so a block that is overwritten while they use it is detected.
  std::vector<OXValue> received;
  ReceiveBuffer buffer;
  MessageScanner scanner{OXWireLimits()};
  for (std::size_t done = 0; done < stream.size();) {
    buffer.prepare(scanner.getSize(), OXWireLimits().maxMessageBytes);
    const std::size_t piece = std::min({buffer.roomSize(), stream.size() - done,
                                        std::size_t{1} + random() % (random() % 2 ? 10 : 50000)});
    std::memcpy(buffer.room(), stream.data() + done, piece);
    buffer.commit(piece);
    done += piece;
    while (scanner.scan(buffer.data(), buffer.size())) {
      received.push_back(decode(buffer.lend(), buffer.data(), scanner.getSize()).value);
      buffer.consume(scanner.getSize());
      scanner.reset();
    }
  }
  ASSERT_EQ(received.size(), sent.size());
  for (std::size_t i = 0; i < sent.size(); ++i)
    ASSERT_EQ(received[i], sent[i]) << "message " << i << ", seed " << seed;
}

TEST(Address, ParsesItsFormsAndRefusesOthers) {
  const struct {
    const char* text;
    const char* expected;
  } kCases[] = {
      {"127.0.0.1:9740", "127.0.0.1:9740"},
      {"localhost:0", "localhost:0"},
      {"[::1]:80", "[::1]:80"},
      {"[host]:80", "host:80"},
      {"unix:/tmp/ox.sock", "unix:/tmp/ox.sock"},
      {"unix:relative:1", "unix:relative:1"},
      {"host", "\"host\" is not a valid address: the port is missing (HOST:PORT or unix:PATH)"},
      {"host:",
       "\"host:\" is not a valid address: the port must be a number from 0 to 65535 "
       "(HOST:PORT or unix:PATH)"},
      {"host:65536",
       "\"host:65536\" is not a valid address: the port must be a number from 0 to 65535 "
       "(HOST:PORT or unix:PATH)"},
      {"host:-1",
       "\"host:-1\" is not a valid address: the port must be a number from 0 to 65535 "
       "(HOST:PORT or unix:PATH)"},
      {"host:80x",
       "\"host:80x\" is not a valid address: the port must be a number from 0 to 65535 "
       "(HOST:PORT or unix:PATH)"},
      {":80", "\":80\" is not a valid address: the host is missing (HOST:PORT or unix:PATH)"},
      {"[]:80", "\"[]:80\" is not a valid address: the host is missing (HOST:PORT or unix:PATH)"},
      {"::1:80",
       "\"::1:80\" is not a valid address: an IPv6 host must be in brackets "
       "(HOST:PORT or unix:PATH)"},
      {"unix:", "\"unix:\" is not a valid address: the path is missing (HOST:PORT or unix:PATH)"},
  };
  for (const auto& test : kCases) {
    std::string result;
    const std::string failure =
        failureOf([&] { result = parseAddress(test.text, "Test", "test").toString(); });
    EXPECT_EQ(failure == "none" ? result : failure, test.expected);
  }
}

}  // namespace
}  // namespace OX::test
