#include "platform/gige/stream/packet_receiver.h"

#include <algorithm>
#include <ctime>

namespace gige {

timespec time_until(moment then) {
  using std::chrono::duration_cast;
  using std::chrono::nanoseconds;
  using std::chrono::seconds;
  const nanoseconds left = std::max<nanoseconds>(then - std::chrono::steady_clock::now(), nanoseconds(0));
  const auto whole = duration_cast<seconds>(left);
  return {whole.count(), (left - whole).count()};
}

}  // namespace gige
