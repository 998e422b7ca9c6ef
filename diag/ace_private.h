#ifndef QOV_DIAG_ACE_PRIVATE_H
#define QOV_DIAG_ACE_PRIVATE_H

namespace qov {

/// Gives the address of a private static member of ACE's for which ACE has no public operation.
/// Naming a private member in an explicit instantiation is allowed:
///
///     struct Member {
///       using Type = int*;
///       friend constexpr Type address(Member);
///     };
///     template struct Reach<Member, &ACE_Class::member_>;
///
/// Then address(Member()) is &ACE_Class::member_.
template <class Name, typename Name::Type kMember>
struct Reach {
  friend constexpr typename Name::Type address(Name) { return kMember; }
};

}  // namespace qov

#endif
