// The fixture of tests that send one job on its way: the fake platform with its job file, and an
// add-in if the test wants one.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "app/job_parameters.h"
#include "platform/sockets.h"
#include "testing/expected_texts.h"
#include "testing/fake_platform/fixture.h"

namespace zentpost::test {

inline constexpr std::uint16_t kAddinPort = 5000;
inline constexpr char16_t kPortKey[] = u"Software\\Sollvex\\OutlookAddin";
inline constexpr char16_t kPortValue[] = u"TolvanAddinPort";
inline constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";

inline constexpr char16_t kJobName[] = u"C:\\jobs\\a.json";
inline const std::string kJobFile =
    "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\"\n}";

// The bytes of the connections to the add-in.
using Sent = std::vector<std::string>;

class JobTest : public platform::fake::FakePlatformTest {
 protected:
  JobTest() { StartOver(); }

  // Makes everything new: the sockets are started, the job file is there, and nothing listens.
  void StartOver() {
    fake_.Reset();
    EXPECT_EQ(platform::StartSockets(0x0202), platform::kSuccess);
    fake_.SetFile(kJobName, kJobFile);
    fake_.ClearCalls();
  }

  void SetPort(std::u16string_view text = u"5000") {
    fake_.SetString(platform::Hive::kCurrentUser, kPortKey, kPortValue, text);
  }

  void StartAddin(platform::fake::Peer peer = platform::fake::Peer::kAccept,
                  unsigned connections = platform::fake::FakePlatform::kUnlimited) {
    SetPort();
    fake_.Listen(kAddinPort, peer, connections);
  }

  [[nodiscard]] std::string JobFile() const {
    return fake_.FileBytes(kJobName).value_or("no job file");
  }
};

// What is read from the job file and the command line.
inline JobParameters Job() {
  JobParameters job;
  job.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  job.arguments.Add(u"attdisplayname", u"Letter.pdf");
  job.arguments.Add(u"jobname", kJobName);
  job.faxFields.Add(u"S", u"A subject");
  job.faxFields.Add(u"+FAX", u"0301234567");
  job.fromJobFile = true;
  return job;
}

inline JobParameters JobWith(const std::u16string& name, const std::u16string& value) {
  JobParameters job = Job();
  job.faxFields.Add(name, value);
  return job;
}

inline PayloadText JobsPayload() {
  return {.receiver = "0301234567",
          .file_name = "C:\\\\docs\\\\fax.pdf",
          .attachment_name = "Letter.pdf",
          .subject = "A subject"};
}

// What the add-in route does, as Steps tells it, with a job that it delivers; the last five steps
// write the outcome into the job file.
inline std::vector<std::string> AddinSteps(const std::string& payload) {
  const std::string result_size = std::to_string(WithSuccess(kJobFile).size());
  return {"log INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.",
          "log INFO: ProcessToOutlookClient(): Created JSON:\r\n" + payload + "\r\n",
          "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
          "QueryValue(TolvanAddinPort, 40)",
          "Create()",
          "Connect(127.0.0.1, 5000)",
          "StartWorker()",
          "Send(" + std::to_string(payload.size()) + ")",
          "WaitForWorker()",
          "log INFO: ProcessToOutlookClient(): The JSON payload successfully sent.",
          "OpenFileAt(C:\\jobs\\a.json, kRead)",
          "QueryFileSize(C:\\jobs\\a.json)",
          "ReadBytes(C:\\jobs\\a.json, " + std::to_string(kJobFile.size()) + ")",
          "OpenFileAt(C:\\jobs\\a.json, kRewrite)",
          "WriteBytes(C:\\jobs\\a.json, " + result_size + ")"};
}

}  // namespace zentpost::test
