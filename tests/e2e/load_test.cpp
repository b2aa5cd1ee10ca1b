// Many jobs at a time, from many processes, against one add-in and into one log. Environment
// variables choose another size: ZENTPOST_LOAD_JOBS and ZENTPOST_LOAD_PROCESSES.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <thread>

#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

std::size_t Size(const char* variable, std::size_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}

// One of the jobs. No two have the same texts.
Job JobOf(std::size_t number) {
  const std::string name = "job-" + std::to_string(number);
  return {.document = name + ".pdf",
          .name = name,
          .receiver = std::to_string(301000000 + number),
          .comment = std::string(number * 37 % 3000, 'c')};
}

std::string LogOf(const Job& job) {
  return Started(job.name + ".json") + SentLines(job.Payload());
}

// A log without times, cut before each level.
std::vector<std::string> Messages(const std::string& log) {
  std::vector<std::string> messages;
  for (std::size_t at = 0; at < log.size();) {
    const std::size_t next = log.find("\nINFO: ", at);
    const std::size_t end = next == std::string::npos ? log.size() : next + 1;
    messages.push_back(log.substr(at, end - at));
    at = end;
  }
  return messages;
}

class Load : public JobTest {};

TEST_F(Load, EveryJobArrivesOnceAndIsLoggedWhole) {
  const std::size_t job_count = Size("ZENTPOST_LOAD_JOBS", LOAD_JOBS);
  const std::size_t process_count = Size("ZENTPOST_LOAD_PROCESSES", LOAD_PROCESSES);
  ASSERT_GT(job_count, process_count);
  ASSERT_GT(process_count, 1u);
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();
  std::vector<Job> jobs;
  for (std::size_t number = 0; number < job_count; ++number) {
    const Job& job = jobs.emplace_back(JobOf(number));
    SetFile(job.name + ".json", job.File());
    SetFile(job.document, job.name);
  }

  const std::time_t begin = std::time(nullptr);
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::string> outcomes(job_count);  // an exit code, or why there is none
  std::atomic<std::size_t> next = 0;
  std::atomic<std::size_t> processes = 0;
  std::atomic<std::size_t> most_processes = 0;
  const auto run_jobs = [&] {
    for (std::size_t number = next++; number < job_count; number = next++) {
      const std::size_t now = ++processes;
      for (std::size_t most = most_processes; most < now;) {
        most_processes.compare_exchange_weak(most, now);
      }
      try {
        outcomes[number] = std::to_string(
            RunUnwatched(Setting("tool"), {jobs[number].name + ".json"}, machine_.Options()));
      } catch (const std::exception& error) {
        outcomes[number] = error.what();
      }
      --processes;
    }
  };
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < process_count; ++i) {
    threads.emplace_back(run_jobs);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
  const std::time_t end = std::time(nullptr);

  // Had they run one after the other, nothing would be shown.
  EXPECT_EQ(most_processes, process_count);
  std::map<std::string, int> arrived;
  for (const addin_listener::Connection& connection : addin.Finish()) {
    if (connection.end != ConnectionEnd::kProbe) {
      EXPECT_EQ(connection.end, ConnectionEnd::kDelivered);
      ++arrived[connection.wire];
    }
  }
  EXPECT_EQ(arrived.size(), job_count);
  std::map<std::string, int> unlogged;
  for (const Job& job : jobs) {
    SCOPED_TRACE(job.name);
    EXPECT_EQ(outcomes[static_cast<std::size_t>(&job - jobs.data())], "0");
    EXPECT_EQ(arrived[job.Payload()], 1);
    ExpectJobFile(test::WithSuccess(job.File()), job.name + ".json");
    EXPECT_EQ(test::OutcomeProblem(
                  test::ReadOutcome(0, LogOf(job), job.File(), FileBytes(job.name + ".json"))),
              "");
    EXPECT_EQ(FileBytes(job.document), job.name);
    for (const std::string& message : Messages(LogOf(job))) {
      ++unlogged[Replaced(message, "\n", "\r\n")];
    }
  }

  const std::string log = ReadBytes(machine_.LogFile()).value_or("");
  const std::vector<std::string> messages =
      Messages(WithoutTimes(log, LocalTimeText(begin), LocalTimeText(end)));
  EXPECT_EQ(messages.size(), job_count * Messages(LogOf(jobs[0])).size());
  std::size_t running = 0;
  std::size_t most_running = 0;
  for (const std::string& message : messages) {
    --unlogged[message];
    running += message.find("StartZentpost(): ") != std::string::npos ? 1 : 0;
    running -= message.ends_with("successfully sent.\r\n") ? 1 : 0;
    most_running = std::max(most_running, running);
  }
  for (const auto& [message, count] : unlogged) {
    EXPECT_EQ(count, 0) << message;
  }
  std::printf(
      "%zu jobs from %zu processes at a time: %zu payloads, %zu log lines in %zu bytes, "
      "up to %zu jobs in it at a time, %.1f s\n",
      job_count, process_count, arrived.size(), messages.size(), log.size(), most_running,
      duration.count());
}

}  // namespace
}  // namespace zentpost::e2e
