#pragma once

namespace TarvexDiags::FrontEnd {

/// Fetches what a turn of the judge goes by, while requests are aborted and end on other threads.
/// A request that has ended told all of it before, and an abort is noted before anything follows
/// from it; so in this order, wherever an end or an abort falls between two of the steps, the
/// messages of each end that is known are there, and so is the abort behind each message.
/// @param findEnded looks which requests have ended. @param fetchMail fetches messages.
/// @param fetchAborts fetches what was aborted. @return what findEnded has found.
template <class FindEnded, class FetchMail, class FetchAborts>
auto fetchInOrder(const FindEnded& findEnded, const FetchMail& fetchMail,
                  const FetchAborts& fetchAborts) {
  auto ended = findEnded();
  fetchMail();
  fetchAborts();
  return ended;
}

}  // namespace TarvexDiags::FrontEnd
