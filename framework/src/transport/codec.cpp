// Messages to and from MessagePack. Decoding trusts the scanner for sizes, nesting and counts, but
// not for meaning; encoding enforces the limits of the other side, which would close the
// connection.
#include "codec.h"

#include <bit>
#include <limits>
#include <msgpack.hpp>
#include <utility>

namespace OX::wire {
namespace {

using Packer = msgpack::packer<OutgoingMessage>;

// Smaller binaries are copied, so that keeping one does not keep a whole message.
constexpr std::uint32_t kAdoptedBytes = 4096;
// Arguments and results are inside the message's own array, which counts as a level of nesting.
constexpr int kLevelsAroundArguments = 1;

// ---- in ----

std::string textOf(const msgpack::object& pObject) {
  if (pObject.type == msgpack::type::STR) return {pObject.via.str.ptr, pObject.via.str.size};
  if (pObject.type == msgpack::type::BIN) return {pObject.via.bin.ptr, pObject.via.bin.size};
  return {};
}

bool isText(const msgpack::object& pObject) {
  return pObject.type == msgpack::type::STR || pObject.type == msgpack::type::BIN;
}

/// Converts objects to values; remembers the first one that it could not convert.
class ValueReader {
 public:
  explicit ValueReader(const boost::shared_ptr<const void>& pOwner) : fOwner(pOwner) {}

  // Recursive, which is safe: the scanner has limited the nesting.
  OXValue read(const msgpack::object& pObject) {
    switch (pObject.type) {
      case msgpack::type::NIL:
        return {};
      case msgpack::type::BOOLEAN:
        return pObject.via.boolean;
      case msgpack::type::POSITIVE_INTEGER:
        if (pObject.via.u64 > std::numeric_limits<int>::max()) return xOutside(pObject.via.u64);
        return static_cast<int>(pObject.via.u64);
      case msgpack::type::NEGATIVE_INTEGER:
        if (pObject.via.i64 < std::numeric_limits<int>::min()) return xOutside(pObject.via.i64);
        return static_cast<int>(pObject.via.i64);
      case msgpack::type::FLOAT32:
      case msgpack::type::FLOAT64:
        // The unpacker widens both; the value rounds to single precision.
        return pObject.via.f64;
      case msgpack::type::STR:
        return textOf(pObject);
      case msgpack::type::BIN:
        return xBinary(pObject.via.bin);
      case msgpack::type::ARRAY:
        return xArray(pObject.via.array);
      case msgpack::type::MAP:
        return xRefuse("a map, which is not supported here");
      case msgpack::type::EXT:
        return xRefuse("an extension type, which is not supported here");
    }
    return xRefuse("a value of an unknown kind");
  }

  const std::string& getProblem() const { return fProblem; }

 private:
  template <typename Integer>
  OXValue xOutside(Integer pInteger) {
    return xRefuse("the integer " + std::to_string(pInteger) + ", which is outside 32 bits");
  }

  /// A value that cannot be represented is a mistake of the caller and no violation: the rest is
  /// still read, and the call is answered with an error.
  OXValue xRefuse(const std::string& pProblem) {
    if (fProblem.empty()) fProblem = pProblem;
    return {};
  }

  OXValue xBinary(const msgpack::object_bin& pBin) const {
    OXValue value;
    const int size = static_cast<int>(pBin.size);  // the scanner has limited it
    if (pBin.size >= kAdoptedBytes)
      value.AdoptBinary(fOwner, pBin.ptr, size);
    else
      value.SetBinary(pBin.ptr, size);
    return value;
  }

  OXValue xArray(const msgpack::object_array& pArray) {
    OXValue::Array elements;
    elements.reserve(pArray.size);
    for (std::uint32_t i = 0; i < pArray.size; ++i) elements.push_back(read(pArray.ptr[i]));
    return elements;
  }

  const boost::shared_ptr<const void>& fOwner;
  std::string fProblem;
};

const msgpack::object* field(const msgpack::object& pMap, const char* pKey) {
  for (std::uint32_t i = 0; i < pMap.via.map.size; ++i)
    if (textOf(pMap.via.map.ptr[i].key) == pKey) return &pMap.via.map.ptr[i].val;
  return nullptr;
}

OXError readError(const msgpack::object& pObject) {
  // Other servers may answer with a plain text or anything else: it is an error all the same.
  if (pObject.type != msgpack::type::MAP) {
    const std::string text = isText(pObject) ? textOf(pObject) : "The call failed";
    return OXError("", "", text, "", 0);
  }
  const auto text = [&](const char* pKey) {
    const msgpack::object* const value = field(pObject, pKey);
    return value ? textOf(*value) : std::string();
  };
  const msgpack::object* const line = field(pObject, "line");
  const bool hasLine = line && line->type == msgpack::type::POSITIVE_INTEGER &&
                       line->via.u64 <= std::numeric_limits<unsigned int>::max();
  return OXError(text("module"), text("method"), text("message"), text("file"),
                 hasLine ? static_cast<unsigned int>(line->via.u64) : 0);
}

std::uint32_t readId(const msgpack::object& pObject) {
  if (pObject.type != msgpack::type::POSITIVE_INTEGER ||
      pObject.via.u64 > std::numeric_limits<std::uint32_t>::max())
    throw WireViolation("malformed message: its id is not an integer of 32 bits");
  return static_cast<std::uint32_t>(pObject.via.u64);
}

void readName(const msgpack::object& pObject, IncomingMessage& pMessage) {
  if (!isText(pObject)) throw WireViolation("malformed message: its method is not a text");
  const std::string name = textOf(pObject);
  // At the first dot: a method's name may contain others.
  const std::size_t dot = name.find('.');
  pMessage.target = name.substr(0, dot);
  if (dot != std::string::npos) pMessage.method = name.substr(dot + 1);
}

void readArguments(const msgpack::object& pObject, ValueReader& pReader,
                   IncomingMessage& pMessage) {
  if (pObject.type != msgpack::type::ARRAY)
    throw WireViolation("malformed message: its arguments are not an array");
  OXValue::Array arguments;
  arguments.reserve(pObject.via.array.size);
  for (std::uint32_t i = 0; i < pObject.via.array.size; ++i) {
    arguments.push_back(pReader.read(pObject.via.array.ptr[i]));
    if (pMessage.problem.empty() && !pReader.getProblem().empty())
      pMessage.problem =
          "Argument " + std::to_string(i + 1) + " is or holds " + pReader.getProblem();
  }
  pMessage.value = std::move(arguments);
}

IncomingMessage readMessage(const msgpack::object& pObject,
                            const boost::shared_ptr<const void>& pOwner) {
  if (pObject.type != msgpack::type::ARRAY || pObject.via.array.size == 0)
    throw WireViolation("malformed message: it is not an array");
  const msgpack::object_array& parts = pObject.via.array;
  const bool known = parts.ptr[0].type == msgpack::type::POSITIVE_INTEGER &&
                     parts.ptr[0].via.u64 <= IncomingMessage::kNotification;
  if (!known) throw WireViolation("malformed message: it is neither request, answer nor event");
  IncomingMessage message;
  message.kind = static_cast<IncomingMessage::Kind>(parts.ptr[0].via.u64);
  const bool event = message.kind == IncomingMessage::kNotification;
  if (parts.size != (event ? 3u : 4u))
    throw WireViolation("malformed message: it has " + std::to_string(parts.size) + " parts");

  ValueReader reader(pOwner);
  if (!event) message.id = readId(parts.ptr[1]);
  if (message.kind == IncomingMessage::kAnswer) {
    if (parts.ptr[2].type != msgpack::type::NIL) message.error = readError(parts.ptr[2]);
    message.value = reader.read(parts.ptr[3]);
    if (!reader.getProblem().empty())
      message.problem = "The result is or holds " + reader.getProblem();
    return message;
  }
  readName(parts.ptr[event ? 1 : 2], message);
  readArguments(parts.ptr[event ? 2 : 3], reader, message);
  return message;
}

// ---- out ----

/// Writes values within the limits; throws OXError beyond them.
class ValueWriter {
 public:
  ValueWriter(OutgoingMessage& pMessage, const OXWireLimits& pLimits)
      : fMessage(pMessage), fPacker(pMessage), fLimits(pLimits) {}

  void write(const OXValue& pValue, int pLevelsAround) {
    switch (pValue.getType()) {
      case OXValue::TypeInvalid:
        fPacker.pack_nil();
        break;
      case OXValue::TypeBool:
        pValue.toBool() ? fPacker.pack_true() : fPacker.pack_false();
        break;
      case OXValue::TypeInt:
        fPacker.pack_int32(pValue.toInt());
        break;
      case OXValue::TypeFloat:
        xFloat(pValue.toFloat());
        break;
      case OXValue::TypeString:
        writeText(pValue.toString());
        break;
      case OXValue::TypeBinary:
        xBinary(pValue);
        break;
      case OXValue::TypeArray:
        xArray(pValue.toArray(), pLevelsAround);
        break;
    }
    // After every value, so that a hopeless message is not encoded to its end first.
    const auto limit = static_cast<std::size_t>(fLimits.maxMessageBytes);
    if (fMessage.getSize() > limit)
      xRefuse("message of at least " + std::to_string(fMessage.getSize()) + " bytes", limit);
  }

  void writeText(const std::string& pText) {
    fPacker.pack_str(static_cast<std::uint32_t>(pText.size()));
    fPacker.pack_str_body(pText.data(), static_cast<std::uint32_t>(pText.size()));
  }

 private:
  /// The packer would encode a float without a fraction as an integer, and lose its kind.
  void xFloat(float pNumber) {
    const auto bits = std::bit_cast<std::uint32_t>(pNumber);
    const auto byte = [bits](int pShift) { return static_cast<char>(bits >> pShift & 0xff); };
    const char bytes[] = {static_cast<char>(0xca), byte(24), byte(16), byte(8), byte(0)};
    fMessage.write(bytes, sizeof bytes);
  }

  void xBinary(const OXValue& pValue) {
    fPacker.pack_bin(static_cast<std::uint32_t>(pValue.getSize()));
    fMessage.writeBinary(pValue);
  }

  void xArray(const OXValue::Array& pArray, int pLevelsAround) {
    if (pArray.size() > static_cast<std::size_t>(fLimits.maxArrayElements))
      xRefuse("array of " + std::to_string(pArray.size()) + " elements", fLimits.maxArrayElements);
    if (pLevelsAround >= fLimits.maxNesting)
      xRefuse("nesting of at least " + std::to_string(pLevelsAround + 1) + " arrays",
              fLimits.maxNesting);
    fElements += pArray.size();
    if (fElements > maxElementsOfMessage(fLimits))
      xRefuse("message of at least " + std::to_string(fElements) + " elements",
              maxElementsOfMessage(fLimits));
    fPacker.pack_array(static_cast<std::uint32_t>(pArray.size()));
    for (const OXValue& element : pArray) write(element, pLevelsAround + 1);
  }

  template <typename Limit>
  [[noreturn]] static void xRefuse(const std::string& pWhat, Limit pLimit,
                                   const OXSourceLocation& pWhere = OXSourceLocation::current()) {
    raiseError("OXWire", "encode",
               "Cannot be sent: " + overLimit(pWhat, static_cast<std::size_t>(pLimit)), pWhere);
  }

  OutgoingMessage& fMessage;
  Packer fPacker;
  const OXWireLimits& fLimits;
  std::size_t fElements = 4;  // those of the message's own array
};

void writeCall(OutgoingMessage& pMessage, const std::string& pTarget, const std::string& pMethod,
               const OXValue& pArguments, const OXWireLimits& pLimits) {
  if (!pArguments.isArray())
    raiseError("OXWire", "encode",
               "Arguments are an array, not " + OXValue::TypeToString(pArguments.getType()));
  ValueWriter writer(pMessage, pLimits);
  writer.writeText(pTarget + "." + pMethod);
  writer.write(pArguments, kLevelsAroundArguments);
}

}  // namespace

IncomingMessage decode(const boost::shared_ptr<const void>& pOwner, const unsigned char* pData,
                       std::size_t pSize) {
  // Texts and binaries refer to the received bytes instead of being copied by the unpacker.
  const auto refer = [](msgpack::type::object_type, std::size_t, void*) { return true; };
  try {
    const msgpack::object_handle handle =
        msgpack::unpack(reinterpret_cast<const char*>(pData), pSize, refer);
    return readMessage(handle.get(), pOwner);
  } catch (const msgpack::unpack_error& error) {
    throw WireViolation(std::string("malformed message: ") + error.what());
  }
}

OutgoingMessage encodeRequest(std::uint32_t pId, const std::string& pTarget,
                              const std::string& pMethod, const OXValue& pArguments,
                              const OXWireLimits& pLimits) {
  OutgoingMessage message;
  Packer(message).pack_array(4).pack_int(IncomingMessage::kRequest).pack_uint32(pId);
  writeCall(message, pTarget, pMethod, pArguments, pLimits);
  return message;
}

OutgoingMessage encodeNotification(const std::string& pTarget, const std::string& pMethod,
                                   const OXValue& pArguments, const OXWireLimits& pLimits) {
  OutgoingMessage message;
  Packer(message).pack_array(3).pack_int(IncomingMessage::kNotification);
  writeCall(message, pTarget, pMethod, pArguments, pLimits);
  return message;
}

OutgoingMessage encodeAnswer(std::uint32_t pId, const OXValue& pResult,
                             const OXWireLimits& pLimits) {
  OutgoingMessage message;
  Packer(message).pack_array(4).pack_int(IncomingMessage::kAnswer).pack_uint32(pId).pack_nil();
  ValueWriter(message, pLimits).write(pResult, kLevelsAroundArguments);
  return message;
}

OutgoingMessage encodeError(std::uint32_t pId, const OXError& pError) {
  OutgoingMessage message;
  Packer packer(message);
  packer.pack_array(4).pack_int(IncomingMessage::kAnswer).pack_uint32(pId).pack_map(6);
  // Not the server's limits: an error that says what was too large must not be too large itself.
  ValueWriter writer(message, OXWireLimits());
  const std::pair<const char*, const std::string&> texts[] = {
      {"module", pError.getModuleName()},
      {"method", pError.getFunctionName()},
      {"message", pError.getDescription()},
      {"file", pError.getFileName()},
  };
  for (const auto& [key, text] : texts) {
    writer.writeText(key);
    writer.writeText(text);
  }
  writer.writeText("line");
  packer.pack_uint32(pError.getLine());
  writer.writeText("text");
  writer.writeText(pError.toString());
  packer.pack_nil();
  return message;
}

}  // namespace OX::wire
