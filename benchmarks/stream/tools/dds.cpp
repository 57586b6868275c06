// Cyclone DDS over the loopback: reliable, the newest image only, messages as large as UDP takes
// and socket buffers of 4 MB, without which large images lose fragments.
#include <dds/dds.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tool.h"

namespace OX::benchmarks {
namespace {

constexpr char kConfiguration[] =
    "<CycloneDDS><Domain id='any'><General>"
    "<Interfaces><NetworkInterface name='lo' multicast='false'/></Interfaces>"
    "<AllowMulticast>false</AllowMulticast><MaxMessageSize>65500B</MaxMessageSize>"
    "<FragmentSize>65000B</FragmentSize></General>"
    "<Discovery><ParticipantIndex>auto</ParticipantIndex>"
    "<Peers><Peer Address='127.0.0.1'/></Peers></Discovery>"
    "<Internal><SocketReceiveBufferSize min='4MB'/><SocketSendBufferSize min='4MB'/></Internal>"
    "<Tracing><Verbosity>none</Verbosity></Tracing></Domain></CycloneDDS>";
constexpr auto kToConnect = std::chrono::seconds(10);

/// The type of the topic, and its description as the compiler of types would write it.
struct Image {
  dds_sequence_t bytes;
};
constexpr std::uint32_t kImageOperations[] = {
    std::uint32_t{DDS_OP_ADR} | std::uint32_t{DDS_OP_TYPE_SEQ} | std::uint32_t{DDS_OP_SUBTYPE_1BY},
    offsetof(Image, bytes), DDS_OP_RTS};
constexpr dds_topic_descriptor_t kImageType = {
    .m_size = sizeof(Image),
    .m_align = alignof(Image),
    .m_flagset = 0,
    .m_nkeys = 0,
    .m_typename = "OX::Image",
    .m_keys = nullptr,
    .m_nops = 2,
    .m_ops = kImageOperations,
    .m_meta = "",
};

dds_entity_t check(dds_return_t pResult, const char* pCall) {
  if (pResult < 0) throw std::runtime_error(std::string(pCall) + ": " + dds_strretcode(-pResult));
  return pResult;
}

/// A participant in a domain that other pairs of processes are not likely to use.
class Participant {
 public:
  explicit Participant(dds_domainid_t pDomain)
      : fDomain(check(dds_create_domain(pDomain, kConfiguration), "dds_create_domain")),
        fParticipant(
            check(dds_create_participant(pDomain, nullptr, nullptr), "dds_create_participant")),
        fTopic(check(dds_create_topic(fParticipant, &kImageType, "image", nullptr, nullptr),
                     "dds_create_topic")),
        fQos(dds_create_qos()) {
    dds_qset_reliability(fQos, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
    dds_qset_history(fQos, DDS_HISTORY_KEEP_LAST, 1);
  }
  ~Participant() {
    dds_delete_qos(fQos);
    dds_delete(fDomain);
  }
  Participant(const Participant&) = delete;
  Participant& operator=(const Participant&) = delete;

  dds_entity_t makeWriter() {
    return check(dds_create_writer(fParticipant, fTopic, fQos, nullptr), "dds_create_writer");
  }
  dds_entity_t makeReader() {
    return check(dds_create_reader(fParticipant, fTopic, fQos, nullptr), "dds_create_reader");
  }
  /// Triggered by what pEntity's status mask says.
  dds_entity_t makeWaitset(dds_entity_t pEntity) {
    const dds_entity_t set = check(dds_create_waitset(fParticipant), "dds_create_waitset");
    check(dds_waitset_attach(set, pEntity, 0), "dds_waitset_attach");
    return set;
  }

 private:
  const dds_entity_t fDomain;
  const dds_entity_t fParticipant;
  const dds_entity_t fTopic;
  dds_qos_t* const fQos;
};

void awaitReader(dds_entity_t pWriter) {
  const auto deadline = std::chrono::steady_clock::now() + kToConnect;
  dds_publication_matched_status_t status{};
  while (dds_get_publication_matched_status(pWriter, &status) >= 0 && status.current_count == 0) {
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("no DDS reader");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

class DdsReceiver : public Receiver {
 public:
  explicit DdsReceiver(dds_domainid_t pDomain)
      : fParticipant(pDomain), fReader(fParticipant.makeReader()) {
    check(dds_set_status_mask(fReader, DDS_DATA_AVAILABLE_STATUS), "dds_set_status_mask");
    fWaitset = fParticipant.makeWaitset(fReader);
  }

  ImageMark receive(std::size_t pBytes) override {
    for (;;) {
      if (check(dds_waitset_wait(fWaitset, nullptr, 0, DDS_SECS(10)), "dds_waitset_wait") == 0)
        throw std::runtime_error("no image by DDS");
      void* sample = nullptr;
      dds_sample_info_t info{};
      const int count = check(dds_take(fReader, &sample, &info, 1, 1), "dds_take");
      if (count == 0) continue;
      ImageMark mark;
      std::size_t bytes = 0;
      if (info.valid_data) {
        const auto* const image = static_cast<const Image*>(sample);
        bytes = image->bytes._length;
        std::memcpy(&mark, image->bytes._buffer, sizeof mark);
      }
      check(dds_return_loan(fReader, &sample, count), "dds_return_loan");
      if (bytes != pBytes) throw std::runtime_error("another image by DDS");
      return mark;
    }
  }

 private:
  Participant fParticipant;
  const dds_entity_t fReader;
  dds_entity_t fWaitset = 0;
};

}  // namespace

void runDdsSender(Conversation& pConversation, const std::vector<std::string>& pArguments) {
  // Of the 232 domains whose ports are in range.
  const auto domain = static_cast<dds_domainid_t>(1 + ::getpid() % 200);
  Participant participant(domain);
  const dds_entity_t writer = participant.makeWriter();
  std::vector<std::uint8_t> bytes(std::stoul(pArguments.at(1)), 77);
  Image image{};
  image.bytes = {static_cast<std::uint32_t>(bytes.size()), static_cast<std::uint32_t>(bytes.size()),
                 bytes.data(), false};
  pConversation.say(std::to_string(domain));
  ImageMark mark;
  for (std::string line; pConversation.hear(line);) {
    if (mark.number == 0) awaitReader(writer);
    ++mark.number;
    mark.sentNs = sharedClockNs();
    std::memcpy(bytes.data(), &mark, sizeof mark);
    check(dds_write(writer, &image), "dds_write");
  }
}

std::unique_ptr<Receiver> makeDdsReceiver(const char* /*pKind*/, const std::string& pGreeting) {
  return std::make_unique<DdsReceiver>(static_cast<dds_domainid_t>(std::stoul(pGreeting)));
}

}  // namespace OX::benchmarks
