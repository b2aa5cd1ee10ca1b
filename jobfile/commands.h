// CCommands: what is read from and written to a job's JSON. The job file reader and the result
// writer are implemented in this folder; the payload builder `json` stands in addin/payload.cpp,
// with the channel that it serves.
//
// A job file is one JSON object in UTF-8. Member names are found whatever the case of their ASCII
// letters; a value of another type than wanted counts as absent.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <memory>
#include <string>

#include "app/job_parameters.h"
#include "platform/memory.h"

namespace zentpost {

struct JsonTreeDeleter {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using JsonTree = std::unique_ptr<cJSON, JsonTreeDeleter>;

struct JsonTextDeleter {
  void operator()(char* text) const { cJSON_free(text); }
};
using JsonText = std::unique_ptr<char, JsonTextDeleter>;

// A file as the JSON library sees it.
struct LoadedJson {
  JsonTree tree;  // null when the file cannot be read or is no JSON
  // Then the UTF-8 text from the point where parsing stopped, zero-terminated; empty when it never
  // began. Points into `text`.
  const char* error_position = "";
  platform::HeapBlock text;
};

// What offering a file to the job file reader came to.
enum class JobFileReading {
  kJobFile,
  kNoJobFile,  // cannot be read, or is no JSON; a log line tells
  kNoMemory,   // memory ran out, and what is there of the job is not the whole
};

class CCommands {
 public:
  // Reads the job file at `path` into `params`: the document's path ("filename") and display name
  // ("attdisplayname") into `arguments`, the fax fields and the fax number ("+FAX") into
  // `faxFields`. `params` stays untouched when the file is no job file. A JSON file without a
  // document is one all the same, whose fax fields are then not read. Does not throw. A file for
  // whose bytes there is no memory counts as one that cannot be read.
  [[nodiscard]] static JobFileReading ReadFromFile(JobParameters& params,
                                                   const std::u16string& path);

  // Reads and parses a JSON file, with or without a UTF-8 byte-order mark; logs nothing. A text
  // counts as JSON when nothing but white space stands behind its first value, or when that value
  // is an object with texts for "FilePath" and "SourceFileName": a document that happens to begin
  // like JSON must not be taken for a job file, and rewritten. The text ends at its first zero
  // byte; a file that goes on behind it holds more than white space. A file for whose bytes there
  // is no memory counts as one that cannot be read; otherwise throws std::bad_alloc when memory
  // runs out.
  [[nodiscard]] static LoadedJson LoadJsonFile(const std::u16string& path);

  // Adds ("filename", the document's path) and ("attdisplayname", its display name, which gets
  // ".pdf" when it has none anywhere). False, with a log line, when there is no tree (null) or one
  // of the two is missing; nothing is then added. Throws std::bad_alloc when memory runs out.
  [[nodiscard]] static bool GetDocumentFromJson(ParameterList& arguments, const cJSON* tree);

  // Adds one fax field under its letter: the value of `long_name` in "Cmd"/"Parameters" or, when
  // there is none, that of `letter` in "Cmd"/"Commands". Either name may be empty: it is then not
  // looked up. True when a value was found. Throws std::bad_alloc when memory runs out.
  [[nodiscard]] static bool ReadCommandValue(JobParameters& params, const cJSON* tree,
                                             const std::u16string& letter,
                                             const std::u16string& long_name);

  // Writes a job's outcome into its job file ("jobname") as the member "Result" and keeps
  // everything else in it. `status` is 0 for delivered and 1 for failed; `errorText` is
  // zero-terminated. True when the file was opened for writing; it is as it was otherwise: when the
  // job has no job file, when it cannot be read as JSON (with a log line), when it is no object,
  // when memory runs out over the outcome, or when it cannot be opened for writing. The whole file
  // is rewritten in place, and is empty when there is no memory to print it. Does not throw.
  static bool UpdateJobFile(const JobParameters& params, std::int32_t status,
                            std::int32_t errorCode, const char16_t* errorText);

  // The add-in's payload for a job: JSON in UTF-8, formatted. Empty when memory runs out. Does not
  // throw.
  [[nodiscard]] static std::string json(const JobParameters& params);
};

}  // namespace zentpost
