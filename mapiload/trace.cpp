#include "mapiload/trace.h"

namespace zentpost {
namespace {

void Hand(const TraceSink& sink, const char16_t* format,
          std::initializer_list<TraceArgument> arguments) {
  if (sink) {
    sink(format, TraceArguments(arguments.begin(), arguments.size()));
  }
}

}  // namespace

TraceSink MapiTraceSink;
TraceSink MapiLoadTraceSink;

void MapiTrace(const char16_t* format, std::initializer_list<TraceArgument> arguments) {
  Hand(MapiTraceSink, format, arguments);
}

void MapiLoadTrace(const char16_t* format, std::initializer_list<TraceArgument> arguments) {
  Hand(MapiLoadTraceSink, format, arguments);
}

}  // namespace zentpost
