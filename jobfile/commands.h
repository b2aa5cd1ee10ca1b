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

namespace zentpost {

struct JsonTreeDeleter {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using JsonTree = std::unique_ptr<cJSON, JsonTreeDeleter>;

struct JsonTextDeleter {
  void operator()(char* text) const { cJSON_free(text); }
};
using JsonText = std::unique_ptr<char, JsonTextDeleter>;

class CCommands {
 public:
  // Reads the job file at `path` into `params`: the document's path ("filename") and display name
  // ("attdisplayname") into `arguments`, the fax fields and the fax number ("+FAX") into
  // `faxFields`. False, with a log line and `params` untouched, when the file cannot be read or is
  // not JSON; a JSON file without a document is a job file all the same, whose fax fields are then
  // not read.
  [[nodiscard]] static bool ReadFromFile(JobParameters& params, const std::u16string& path);

  // Reads and parses a JSON file, with or without a UTF-8 byte-order mark. Nothing when it cannot
  // be read or parsed, or when memory runs out; logs nothing. `error_position` is then the text
  // from the point where parsing stopped, and empty when it never began.
  [[nodiscard]] static JsonTree LoadJsonFile(const std::u16string& path,
                                             std::u16string& error_position);

  // Adds ("filename", the document's path) and ("attdisplayname", its display name, which gets
  // ".pdf" when it has none anywhere). False, with a log line, when there is no tree (null) or one
  // of the two is missing; nothing is then added.
  [[nodiscard]] static bool GetDocumentFromJson(ParameterList& arguments, const cJSON* tree);

  // Adds one fax field under its letter: the value of `long_name` in "Cmd"/"Parameters" or, when
  // there is none, that of `letter` in "Cmd"/"Commands". Either name may be empty: it is then not
  // looked up. True when a value was found.
  [[nodiscard]] static bool ReadCommandValue(JobParameters& params, const cJSON* tree,
                                             const std::u16string& letter,
                                             const std::u16string& long_name);

  // Writes a job's outcome into its job file ("jobname") as the member "Result" and keeps
  // everything else in it. `status` is 0 for delivered and 1 for failed. True when the file was
  // opened for writing; false when the job has no job file, when it cannot be read as JSON (with a
  // log line), when memory runs out over the outcome, or when it cannot be opened for writing: it
  // is then as it was. The whole file is rewritten in place.
  static bool UpdateJobFile(const JobParameters& params, std::int32_t status,
                            std::int32_t errorCode, const std::u16string& errorText);

  // The add-in's payload for a job: JSON in UTF-8, formatted. Empty when memory runs out.
  [[nodiscard]] static std::string json(const JobParameters& params);
};

}  // namespace zentpost
