"""Mail through a real mail server and the filter."""

import socket
import unittest
import uuid

from mailtest import MailTest, wait_until


def message(subject="Hello", more=""):
    """A message that can be found again, and what finds it."""
    marker = uuid.uuid4().hex
    return f"Subject: {subject}\r\nX-Marker: {marker}\r\n{more}\r\nText\r\n", marker


# Of which a mail server called mx.test makes a@sales.example.com.
REWRITTEN_RECIPIENTS = ("<a%sales.example.com>", "<sales.example.com!a>", "<a@sales.example.com@mx.test>",
                        "<a%sales.example.com@mx.test>", '<"a@sales.example.com"@mx.test>', "< a @ sales.example.com >",
                        "<a@sales.example.com (c)>")


class PostfixMatrix(MailTest):
    def setUp(self):
        super().setUp()
        rule = self.gateway.rule
        rule("allow", ["friend@bad.test"], kind=1)
        rule("null sender", ["<>"], scope="*@null.example.com", actions=["Delete"], reply="no bounces here")
        rule("refuse", ["refused@bad.test", "refused@dead.test"], actions=["Delete"], reply="100% refused")
        rule("sales only", ["mixed@bad.test"], scope="*@sales.example.com", actions=["Delete"], reply="not to sales")
        rule("drop for one", ["half@bad.test"], scope="one@example.com", actions=["Delete"])
        rule("drop", ["dropped@bad.test"], actions=["Delete"])
        rule("later", ["later@bad.test"], actions=["Postpone"])
        rule("tag", ["tagged@bad.test"], actions=["SubjectTagging", "InsertXHeaderTag"], tag="[Prüfen]",
             header_value="suspect")
        rule("move", ["moved@bad.test"], actions=["Readdress"], address="other@example.com")
        rule("copy", ["copied@bad.test"], actions=["Bcc"], address="archive@example.com")
        rule("hold", ["held@bad.test"], actions=["Quarantine"], area="Spam area")
        rule("spelled otherwise", ["plain@tags.test", "*@b\u00fccher.test"], actions=["Delete"], reply="known")
        rule("one of many", ["x@good.test"], scope="list@example.com", actions=["Delete"], reply="not to the list")
        rule("by header", ["forged@bad.test"], compares=2, actions=["Delete"], reply="not from there")
        self.gateway.set(delimiter="+", strip_srs="yes")
        self.filter = self.start_filter()
        self.server = self.start_postfix(
            smtpd_authorized_xclient_hosts="127.0.0.1", mydestination="mx.test",
            transport_maps="inline:{dead.test=error:gone}",
            virtual_mailbox_domains="example.com, sales.example.com, null.example.com")

    def send(self, sender, recipients, subject="Hello", more=""):
        body, marker = message(subject, more)
        codes, reply = self.server.send(sender, recipients, body)
        return codes, reply, marker

    def test_everything_in_one_go(self):
        # Starting the mail server takes longest, so that all cases share one.
        for case in (self.passes, self.refuses, self.refuses_one_of_two, self.drops, self.drops_one_of_two, self.postpones,
                     self.tags, self.readdresses, self.copies, self.holds, self.takes_forged_headers_out, self.by_header,
                     self.null_sender, self.quoted_local_part, self.huge_header, self.eight_bit, self.pipelining,
                     self.broken_connections, self.many_messages_in_a_session, self.by_subdomain,
                     self.spellings_of_senders, self.extension_of_a_recipient, self.authenticated,
                     self.addresses_that_the_server_rewrites):
            with self.subTest(case.__name__):
                case()

    def passes(self):
        codes, reply, marker = self.send("friend@bad.test", ["a@example.com"])
        self.assertEqual((codes, reply[0]), ([250], 250))
        self.assertIn("X-Zaro-Policy: rule=allow; code=1; pattern=friend@bad.test\n", self.server.wait_for_mail(marker)[0])

    def refuses(self):
        with self.server.connect() as session:
            session.ehlo()
            session.mail("refused@bad.test")
            self.assertEqual(session.rcpt("a@example.com"), (550, b"5.7.1 100% refused"))

    def refuses_one_of_two(self):
        codes, reply, marker = self.send("mixed@bad.test", ["a@example.com", "b@sales.example.com", "c@example.com"])
        self.assertEqual((codes, reply[0]), ([250, 550, 250], 250))
        text = "".join(self.server.wait_for_mail(marker, 2))
        self.assertNotIn("X-Zaro-Policy", text)

    def drops(self):
        codes, reply, marker = self.send("dropped@bad.test", ["a@example.com", "b@example.com"])
        self.assertEqual((codes, reply[0]), ([250, 250], 250))
        wait_until(lambda: "milter-discard" in self.server.log() or "discard" in self.server.log(), "the discard is logged")
        self.assertFalse([text for text in self.server.delivered() if marker in text])

    def drops_one_of_two(self):
        codes, reply, marker = self.send("half@bad.test", ["one@example.com", "two@example.com"])
        self.assertEqual((codes, reply[0]), ([250, 250], 250))
        self.assertIn("Delivered-To: two@example.com", self.server.wait_for_mail(marker)[0])
        self.assertNotIn("one@example.com", self.server.wait_for_mail(marker)[0])

    def postpones(self):
        codes, _, _ = self.send("later@bad.test", ["a@example.com"])
        self.assertEqual(codes, [451])

    def tags(self):
        _, _, marker = self.send("tagged@bad.test", ["a@example.com"])
        text = self.server.wait_for_mail(marker)[0]
        self.assertIn("Subject: =?UTF-8?B?W1Byw7xmZW5dIA==?= Hello\n", text)
        self.assertIn("X-Zaro-Policy: suspect\n", text)
        self.assertIn("X-Zaro-Policy: rule=tag; code=2; pattern=tagged@bad.test\n", text)

    def readdresses(self):
        _, _, marker = self.send("moved@bad.test", ["a@example.com"])
        self.assertIn("Delivered-To: other@example.com\n", self.server.wait_for_mail(marker)[0])
        self.assertEqual(len(self.server.wait_for_mail(marker)), 1)

    def copies(self):
        _, _, marker = self.send("copied@bad.test", ["a@example.com", "b@example.com"])
        texts = self.server.wait_for_mail(marker, 3)
        self.assertEqual(len([text for text in texts if "Delivered-To: archive@example.com\n" in text]), 1)

    def holds(self):
        before = self.server.held()
        codes, reply, _ = self.send("held@bad.test", ["a@example.com"])
        self.assertEqual((codes, reply[0]), ([250], 250))
        wait_until(lambda: self.server.held() == before + 1, "the message is held")
        wait_until(lambda: "milter-hold" in self.server.log(), "the hold is logged")

    def takes_forged_headers_out(self):
        forged = "X-Zaro-Policy: rule=forged one\r\nx-zaro-policy: rule=forged two\r\n"
        for sender in ("friend@bad.test", "nobody@good.test"):
            _, _, marker = self.send(sender, ["a@example.com"], more=forged)
            self.assertNotIn("forged", self.server.wait_for_mail(marker)[0])

    def by_header(self):
        _, reply, _ = self.send("nobody@good.test", ["a@example.com"], more='From: "x@y.test" <forged@bad.test>\r\n')
        self.assertEqual(reply, (550, b"5.7.1 not from there"))

    def null_sender(self):
        codes, _, _ = self.send("", ["a@null.example.com", "a@example.com"])
        self.assertEqual(codes, [550, 250])

    def quoted_local_part(self):
        codes, _, _ = self.send('"refused"@bad.test', ["a@example.com"])
        self.assertEqual(codes, [550])

    def spellings_of_senders(self):
        for sender in ("plain+extension@tags.test", "prvs=1234abcdef=plain@tags.test", "SRS0=ab=XY=tags.test=plain@relay.test",
                       "SRS1=cd=one.test==ab=XY=tags.test=plain@relay.test", "PLAIN@Tags.Test", "x@xn--bcher-kva.test"):
            self.assertEqual(self.send(sender, ["a@example.com"])[0], [550], sender)
        for sender in ("plain@relay.test", "plain@bcher.test"):
            self.assertEqual(self.send(sender, ["a@example.com"])[0], [250], sender)

    def extension_of_a_recipient(self):
        codes, _, _ = self.send("x@good.test", ["list+topic@example.com", "other+list@example.com"])
        self.assertEqual(codes, [550, 250])

    def addresses_that_the_server_rewrites(self):
        # Each is delivered as the plain one is.
        def replies(sender, recipient):
            return self.server.replies(f"MAIL FROM:{sender}", f"RCPT TO:{recipient}")

        for sender in ("<refused%bad.test>", "<bad.test!refused>", "<refused@bad.test (x)>", "<x: refused@bad.test;>",
                       "<Foo <refused@bad.test>>", "<refused@bad . test>", "<refused%dead.test>"):
            self.assertEqual(replies(sender, "<a@example.com>"), [250, 550], sender)
        for recipient in REWRITTEN_RECIPIENTS:
            self.assertEqual(replies("<mixed@bad.test>", recipient), [250, 550], recipient)
        # The server knows a recipient by the client's spelling.
        with self.server.connect() as session:
            session.ehlo()
            session.docmd("MAIL FROM:<moved@bad.test>")
            self.assertEqual(session.docmd("RCPT TO:<a%example.com>")[0], 250)
            body, marker = message()
            session.data(body)
        self.assertIn("Delivered-To: other@example.com\n", self.server.wait_for_mail(marker)[0])
        self.assertEqual(len(self.server.wait_for_mail(marker)), 1)

    def authenticated(self):
        # What a login leaves behind; XCLIENT stands for it.
        with self.server.connect() as session:
            session.ehlo()
            self.assertEqual(session.docmd("XCLIENT", "LOGIN=somebody")[0], 220)
            session.ehlo()
            session.mail("refused@bad.test")
            self.assertEqual(session.rcpt("a@example.com")[0], 250)

    def by_subdomain(self):
        codes, _, _ = self.send("REFUSED@BAD.TEST", ['"a b"@example.com'])
        self.assertEqual(codes, [550])

    def huge_header(self):
        huge = "X-Huge: " + "\r\n ".join(["x" * 900] * 80) + "\r\n"
        _, reply, marker = self.send("friend@bad.test", ["a@example.com"], more=huge)
        self.assertEqual(reply[0], 250)
        self.assertIn("rule=allow", self.server.wait_for_mail(marker)[0])

    def eight_bit(self):
        marker = uuid.uuid4().hex
        body = f"Subject: \u00fc\r\nX-Marker: {marker}\r\nFrom: \u00fc <x@y.test>\r\n\r\n\u00fc\r\n".encode("latin-1")
        _, reply = self.server.send("tagged@bad.test", ["a@example.com"], body)
        self.assertEqual(reply[0], 250)
        self.assertIn("W1Byw7xmZW5dIA==?= \u00fc\n", self.server.wait_for_mail(marker)[0])

    def pipelining(self):
        body, marker = message()
        with socket.create_connection(("127.0.0.1", self.server.port)) as raw:
            stream = raw.makefile("rwb")
            stream.readline()
            stream.write(b"EHLO client.test\r\n")
            stream.flush()
            while stream.readline()[3:4] == b"-":
                pass
            stream.write(b"MAIL FROM:<mixed@bad.test>\r\nRCPT TO:<a@sales.example.com>\r\nRCPT TO:<a@example.com>\r\nDATA\r\n")
            stream.flush()
            self.assertEqual([stream.readline()[:3] for _ in range(4)], [b"250", b"550", b"250", b"354"])
            stream.write(body.encode() + b".\r\nQUIT\r\n")
            stream.flush()
            self.assertEqual(stream.readline()[:3], b"250")
        self.server.wait_for_mail(marker)

    def broken_connections(self):
        for sent in (b"MAIL FROM:<held@bad.test>\r\n", b"MAIL FROM:<held@bad.test>\r\nRCPT TO:<a@example.com>\r\n",
                     b"MAIL FROM:<held@bad.test>\r\nRCPT TO:<a@example.com>\r\nDATA\r\nSubject: x\r\n"):
            with socket.create_connection(("127.0.0.1", self.server.port)) as raw:
                raw.recv(100)
                raw.sendall(b"EHLO client.test\r\n" + sent)
                raw.recv(100)
        self.passes()

    def many_messages_in_a_session(self):
        with self.server.connect() as session:
            session.ehlo()
            for sender, codes in (("refused@bad.test", [550]), ("friend@bad.test", [250]), ("later@bad.test", [451]),
                                  ("nobody@good.test", [250])):
                session.mail(sender)
                self.assertEqual([session.rcpt("a@example.com")[0]], codes)
                session.rset()
            body, marker = message()
            session.mail("nobody@good.test")
            session.rcpt("a@example.com")
            session.data(body)
        self.assertNotIn("X-Zaro-Policy", self.server.wait_for_mail(marker)[0])

    def test_the_log_has_a_line_for_each_decision(self):
        _, reply, _ = self.send("friend@bad.test", ["a@example.com", "b@example.com"])
        queue_id = reply[1].decode().split("queued as ")[1]
        for recipient in ("<a@example.com>", "<b@example.com>"):
            self.filter.wait_for_log(f"queue={queue_id} sender=<friend@bad.test> from=friend@bad.test recipient={recipient} rule=allow"
                                     " pattern=friend@bad.test code=1")

    def test_shadow_mode_tells_and_does_nothing(self):
        self.filter.stop()
        self.gateway.set(shadow="yes")
        self.filter.start()
        for sender in ("refused@bad.test", "dropped@bad.test", "held@bad.test"):
            codes, _, marker = self.send(sender, ["a@example.com"])
            self.assertEqual(codes, [250])
            self.assertIn("X-Zaro-Policy: shadow; would=", self.server.wait_for_mail(marker)[0])


class PolicyDelegation(MailTest):
    def test_refuses_recipients_without_a_milter(self):
        self.gateway.rule("refuse", ["refused@bad.test"], scope="a@example.com", actions=["Delete"], reply="go away")
        self.gateway.rule("later", ["later@bad.test"], actions=["Postpone"])
        self.gateway.set(policy_socket="unix:run/policy.sock")
        self.start_filter()
        server = self.start_postfix(
            milter="", smtpd_recipient_restrictions=f"check_policy_service unix:{self.gateway.home}/run/policy.sock")
        self.assertEqual(server.send("refused@bad.test", ["a@example.com", "b@example.com"])[0], [550, 250])
        self.assertEqual(server.send("later@bad.test", ["a@example.com"])[0], [451])

    def test_is_asked_for_the_address_that_is_delivered_to_with_the_settings_of_the_manual(self):
        self.gateway.rule("refuse", ["refused@bad.test"], scope="a@sales.example.com", actions=["Delete"], reply="go away")
        self.gateway.set(policy_socket="unix:run/policy.sock")
        self.start_filter()
        server = self.start_postfix(
            milter="", smtpd_recipient_restrictions=f"check_policy_service unix:{self.gateway.home}/run/policy.sock",
            mydestination="mx.test", virtual_mailbox_domains="sales.example.com",
            allow_percent_hack="no", swap_bangpath="no", resolve_dequoted_address="no")
        for recipient in REWRITTEN_RECIPIENTS:
            code = server.replies("MAIL FROM:<refused@bad.test>", f"RCPT TO:{recipient}")[1]
            # By the filter, or for an address of mx.test, where no mail is delivered.
            self.assertIn(code, (550, 554), recipient)


if __name__ == "__main__":
    unittest.main()
