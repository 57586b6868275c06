/// The log: records, written by a scoped stream or a plain call and handed to sinks.
///
/// Levels: 1 fatal, 2 error, 3 warning, 4 information, 5 verbose. Thread-safe. Sinks run on the
/// thread that logs, one record at a time.
///
/// No caller waits for standard error: a thread of the log's own writes there. While nobody reads,
/// some thousands of records are kept; further ones are dropped, and their number follows as
/// a record. At exit, std::terminate and SIGABRT the process waits until the records are written,
/// at most a second; handlers of the program's own for the latter two, set before the first record
/// or later, take the place of the log's.
#pragma once

#include <boost/shared_ptr.hpp>
#include <sstream>
#include <string>

#include "oxapi.h"

namespace ki::log {

enum Level : int { kFatal = 1, kError = 2, kWarning = 3, kInfo = 4, kVerbose = 5 };

struct Record {
  int level;
  std::string category;  ///< "vision.videoinput" and the like
  std::string message;   ///< may contain line ends; it is one record all the same
  std::string file;      ///< may be empty
  std::string function;
  int line;
};

/// Receives records. Called from any thread, one call at a time; must not log and must not fork.
class OX_API Sink {
 public:
  virtual ~Sink();
  virtual void write(const Record& pRecord) = 0;
};

/// Sinks receive every record, whatever its level. The log shares a sink until it is removed.
OX_API void addSink(const boost::shared_ptr<Sink>& pSink);
OX_API void removeSink(const boost::shared_ptr<Sink>& pSink);

/// Records of this level and below are also written to standard error (4 at the start); 0 silences
/// it.
OX_API void setLevel(int pLevel);

/// Hands one record to all sinks. pFile may be empty.
OX_API void log(int pLevel, const std::string& pCategory, const std::string& pMessage,
                const std::string& pFile, const std::string& pFunction, int pLine);

/// An output stream whose text is logged as one record in its destructor. One thread only.
class OX_API LogStream : public std::ostringstream {
 public:
  LogStream(int pLevel, const std::string& pCategory, const std::string& pFile,
            const std::string& pFunction, int pLine);
  ~LogStream() override;

 private:
  int fLevel;
  std::string fCategory;
  std::string fFile;
  std::string fFunction;
  int fLine;
};

}  // namespace ki::log
