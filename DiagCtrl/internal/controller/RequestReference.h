#pragma once

#include <utility>

#include "DiagCtrl/TestRequest.h"

namespace TarvexDiags::DiagCtrl {

/// Keeps a request from being freed while a thread of the pipeline or a client call works on it.
class RequestReference {
 public:
  RequestReference() noexcept = default;
  explicit RequestReference(TestRequest* apTestRequest) noexcept : mpTestRequest(apTestRequest) {
    if (mpTestRequest != nullptr) {
      mpTestRequest->addReference();
    }
  }
  RequestReference(RequestReference&& arOther) noexcept
      : mpTestRequest(std::exchange(arOther.mpTestRequest, nullptr)) {}
  RequestReference& operator=(RequestReference&& arOther) noexcept {
    if (this != &arOther) {
      release();
      mpTestRequest = std::exchange(arOther.mpTestRequest, nullptr);
    }
    return *this;
  }
  RequestReference(const RequestReference&) = delete;
  RequestReference& operator=(const RequestReference&) = delete;
  ~RequestReference() { release(); }

  /// Takes over a reference that was counted before, a queue's say.
  static RequestReference adopt(TestRequest* apTestRequest) noexcept {
    RequestReference reference;
    reference.mpTestRequest = apTestRequest;
    return reference;
  }

  explicit operator bool() const noexcept { return mpTestRequest != nullptr; }
  TestRequest* get() const noexcept { return mpTestRequest; }
  TestRequest* operator->() const noexcept { return mpTestRequest; }
  TestRequest& operator*() const noexcept { return *mpTestRequest; }

 private:
  void release() noexcept {
    if (mpTestRequest != nullptr) {
      mpTestRequest->dropReference();
      mpTestRequest = nullptr;
    }
  }

  TestRequest* mpTestRequest = nullptr;
};

}  // namespace TarvexDiags::DiagCtrl
