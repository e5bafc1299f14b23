#pragma once

namespace TarvexDiags::TestSupport {

/// Says which member a tag stands for: found by the tag, with the member's own type.
template <class Tag, auto member>
struct PrivateMember {
  friend constexpr auto memberOf(Tag /*tag*/) { return member; }
};

template <class Tag, class Object>
auto& privateMember(Object& object) {
  return object.*memberOf(Tag());
}

}  // namespace TarvexDiags::TestSupport

/// Opens a private member of a class to a test that must look inside, or break what no caller can.
/// Stands outside of namespaces; the name is that of a type, one to a program.
///
///   TARVEX_PRIVATE_MEMBER(CountTag, DiagCtrl::Counter::m_count);
///
///   privateMember<CountTag>(counter) = -1;
///
/// An explicit instantiation is the one place where the language lets a private name be spelled.
#define TARVEX_PRIVATE_MEMBER(Tag, name)                  \
  namespace TarvexDiags::TestSupport {                    \
  struct Tag {                                            \
    friend constexpr auto memberOf(Tag);                  \
  };                                                      \
  template struct PrivateMember<Tag, &TarvexDiags::name>; \
  }                                                       \
  using TarvexDiags::TestSupport::Tag
