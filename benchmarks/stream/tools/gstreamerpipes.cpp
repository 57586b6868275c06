// GStreamer's own ways between processes: shmsink to shmsrc, and tcpserversink to tcpclientsrc.
// Nothing is synchronised to a clock and nothing converts. The stream of tcpserversink has no
// frames; its receiver counts bytes, which is less than a user has to do.
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

#include "../rawchannel.h"
#include "tool.h"

namespace OX::benchmarks {
namespace {

constexpr auto kToConnect = std::chrono::seconds(10);

/// A pipeline that plays until its end.
class Pipeline {
 public:
  explicit Pipeline(const std::string& pDescription) {
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    fPipeline = gst_parse_launch(pDescription.c_str(), &error);
    if (!error) return;
    const std::string text = error->message;
    const bool lacksElement = error->code == GST_PARSE_ERROR_NO_SUCH_ELEMENT;
    g_error_free(error);
    if (fPipeline) gst_object_unref(fPipeline);
    if (lacksElement) throw NotAvailable(text);
    throw std::runtime_error(text);
  }
  ~Pipeline() {
    for (GstElement* const element : fElements) gst_object_unref(element);
    gst_element_set_state(fPipeline, GST_STATE_NULL);
    gst_object_unref(fPipeline);
  }
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  void play() {
    if (gst_element_set_state(fPipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
      throw std::runtime_error("a pipeline of GStreamer does not play");
  }
  /// Borrowed.
  GstElement* element(const char* pName) {
    fElements.push_back(gst_bin_get_by_name(GST_BIN(fPipeline), pName));
    return fElements.back();
  }

 private:
  GstElement* fPipeline = nullptr;
  std::vector<GstElement*> fElements;
};

bool isShared(const std::string& pKind) { return pKind == "shm"; }

class GStreamerReceiver : public Receiver {
 public:
  explicit GStreamerReceiver(const std::string& pSource)
      : fPipeline(pSource + " ! appsink name=sink sync=false"),
        fSink(GST_APP_SINK(fPipeline.element("sink"))) {
    fPipeline.play();
  }

  ImageMark receive(std::size_t pBytes) override {
    ImageMark mark;
    std::size_t marked = 0;
    for (std::size_t done = 0; done < pBytes;) {
      GstSample* const sample = gst_app_sink_try_pull_sample(fSink, 10 * GST_SECOND);
      if (!sample) throw std::runtime_error("no image by GStreamer");
      GstBuffer* const buffer = gst_sample_get_buffer(sample);
      marked += gst_buffer_extract(buffer, 0, reinterpret_cast<char*>(&mark) + marked,
                                   sizeof mark - marked);
      done += gst_buffer_get_size(buffer);
      gst_sample_unref(sample);
      if (done > pBytes) throw std::runtime_error("another image by GStreamer");
    }
    return mark;
  }

 private:
  Pipeline fPipeline;
  GstAppSink* const fSink;
};

/// Until a receiver is there: what is sent earlier is lost.
void awaitReceiver(GstElement* pSink) {
  const auto deadline = std::chrono::steady_clock::now() + kToConnect;
  guint count = 0;
  while (g_object_get(pSink, "num-handles", &count, nullptr), count == 0) {
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("no receiver of GStreamer");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace

void runGStreamerSender(Conversation& pConversation, const std::vector<std::string>& pArguments) {
  const bool shared = isShared(pArguments.at(0));
  const std::string path = socketFile();
  const std::size_t bytes = std::stoul(pArguments.at(1));
  Pipeline pipeline(
      "appsrc name=source ! " +
      (shared ? "shmsink name=sink sync=false wait-for-connection=true socket-path=" + path +
                    " shm-size=" + std::to_string(4 * bytes + 65536)
              : std::string("tcpserversink name=sink sync=false host=127.0.0.1 port=0")));
  GstAppSrc* const source = GST_APP_SRC(pipeline.element("source"));
  GstElement* const sink = pipeline.element("sink");
  pipeline.play();
  std::string where = path;
  if (!shared) {
    gint port = 0;
    g_object_get(sink, "current-port", &port, nullptr);
    where = std::to_string(port);
  }
  pConversation.say(where);
  std::vector<char> image(bytes, 77);
  ImageMark mark;
  for (std::string line; pConversation.hear(line);) {
    if (mark.number == 0 && !shared) awaitReceiver(sink);
    ++mark.number;
    mark.sentNs = sharedClockNs();
    std::memcpy(image.data(), &mark, sizeof mark);
    GstBuffer* const buffer = gst_buffer_new_wrapped_full(
        GST_MEMORY_FLAG_READONLY, image.data(), image.size(), 0, image.size(), nullptr, nullptr);
    if (gst_app_src_push_buffer(source, buffer) != GST_FLOW_OK)
      throw std::runtime_error("GStreamer refuses an image");
  }
}

std::unique_ptr<Receiver> makeGStreamerReceiver(const char* pKind, const std::string& pGreeting) {
  return std::make_unique<GStreamerReceiver>(isShared(pKind)
                                                 ? "shmsrc socket-path=" + pGreeting
                                                 : "tcpclientsrc host=127.0.0.1 port=" + pGreeting);
}

}  // namespace OX::benchmarks
