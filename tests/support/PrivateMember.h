#pragma once

namespace TarvexDiags::TestSupport {

/** The member that a tag stands for; filled before main by the tag's PrivateMember. */
template <class Tag>
struct MemberOf {
  static inline typename Tag::Member value{};
};

/**
 * Opens a private member of a class to a test that must look inside, or break what no caller can.
 *
 *   struct CountTag { using Member = int Counter::*; };
 *   template struct TarvexDiags::TestSupport::PrivateMember<CountTag, &Counter::m_count>;
 *
 *   privateMember<CountTag>(counter) = -1;
 *
 * The tag stands in a namespace with a name. The explicit instantiation is the one place where the
 * language lets a private name be spelled.
 */
template <class Tag, typename Tag::Member member>
struct PrivateMember {
  static inline const bool isFilled = (MemberOf<Tag>::value = member, true);
};

template <class Tag, class Object>
auto& privateMember(Object& object) {
  return object.*MemberOf<Tag>::value;
}

}  // namespace TarvexDiags::TestSupport
