// E-mail addresses in the one form in which lists are asked for them, however mail spells them (RFC 5321, 4.1.2).
#pragma once

#include <string>
#include <string_view>

// The domain begins behind the last "@", where mail servers see it begin too. The library takes the first: a local part
// that holds one, which it may in quotes, would otherwise move the domain and with it escape every rule for it.
//
// | spelled                        | form              |
// |--------------------------------|-------------------|
// | <a@b.test>, <@relay.test:a@b.test> | a@b.test      | without angle brackets and source route
// | <>                             | <>                | the null sender; an empty text stays empty
// | A@B.Test.                      | a@b.test          | ASCII lower case, without the dot of the root
// | "a"@b.test, a\b@b.test         | a@b.test, ab@...  | without quotes and backslashes where they are not needed
// | "a b"@c.test, a b@c.test       | "a b"@c.test      | with them where they are
// | "a@b%"@c.test, a@b%@c.test     | "a%40b%25"@c.test | in quotes, "@" and "%" as their numbers
// | a@bücher.test                  | a@xn--bcher-kva.test | A-labels (RFC 5891, by UTS #46 non-transitional)
// | a@[IPv6:2001:DB8::1]           | a@[ipv6:2001:db8::1] |
//
// A label that has no A-label, because it is no UTF-8 or has a character that no domain may have, stays as it is. No
// text is refused: what mail does not allow has a form too. A form has one "@" at most. Throws std::bad_alloc.
std::string normalAddress(std::string_view spelled);

// Whether the text is one address that mail can be sent to: a local part, in quotes as a whole where it needs them, "@",
// and the labels of a host or an address literal. Brackets, comments and blanks around it are no part of an address.
bool isMailbox(std::string_view text);

// The same for an address whose local part may end in an extension: from the first of the `delimiters` on it is left
// out, unless nothing would be left. Local parts that mail servers answer for themselves stay whole: mailer-daemon,
// double-bounce, postmaster; and with "-" among the delimiters those that begin with "owner-" or end in "-request".
std::string normalAddress(std::string_view spelled, std::string_view delimiters);

// What mail servers put into a local part, and a list shall not see.
//
// | option     | spelled                                     | form            |
// |------------|---------------------------------------------|-----------------|
// | delimiters | user+list@a.test                            | user@a.test     | as above, after the others
// | stripBatv  | prvs=1234abcdef=user@a.test                 | user@a.test     | tag of bounce address validation
// | stripSrs   | SRS0=ab=XY=a.test=user@relay.test           | user@a.test     | rewritten by a forwarder
// |            | SRS1=cd=one.test==ab=XY=a.test=user@relay.test | user@a.test  | and by one behind it
//
// Tags are not verified: the sender who writes one chooses what the form is. A tag that is not whole stays.
struct AddressForm {
  std::string_view delimiters;
  bool stripBatv = false;
  bool stripSrs = false;
};
std::string normalAddress(std::string_view spelled, const AddressForm& form);

// The form of a pattern, so that it contains the addresses that it names: local part and domain as above, where in
// quotes "%40" and "%25" are an "@" and a "%", so that a form is its own. A "*" in quotes is no wildcard. What has no
// "@", and angle brackets, stay as they are.
std::string normalPattern(std::string_view pattern);

// True for a pattern that certainly is its own form, as nearly all of a big list are.
bool isPlainPattern(std::string_view pattern);
