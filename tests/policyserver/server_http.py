"""What a policy server answers, and what each of its settings does, as clients see it that were made by others."""

import concurrent.futures
import gzip
import hashlib
import json
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import threading
import time
import unittest

from servertest import PATIENCE, Server, ServerTest, curl, lines_of, read_all, takes_signals, wait_until

REQUEST = b"GET /v1/policy HTTP/1.1\r\nHost: x\r\n\r\n"


class Answers(ServerTest):
    def test_the_policy_is_whole_and_has_one_tag(self):
        server = self.start()
        answer = curl(server.url())
        self.assertEqual((answer.status, answer.fields["content-type"]), (200, "application/x-ndjson"))
        text, tail = answer.body[:answer.body.rindex(b'{"sha256"')], lines_of(answer)[-1]
        self.assertEqual(tail["sha256"], hashlib.sha256(text).hexdigest())
        head = lines_of(answer)[0]
        self.assertEqual(answer.fields["etag"], f'"{head["version"]}-{tail["sha256"]}"')
        self.assertEqual(answer.fields["vary"], "Accept-Encoding")
        for encoding, compressed in (("gzip", True), ("br;q=1.0, gzip;q=0.8, *;q=0.1", True), ("gzip;q=0", False),
                                     ("identity", False), ("*", True)):
            with self.subTest(encoding):
                other = curl(server.url(), "-H", f"Accept-Encoding: {encoding}")
                self.assertEqual(other.fields.get("content-encoding"), "gzip" if compressed else None)
                self.assertEqual(gzip.decompress(other.body) if compressed else other.body, answer.body)
        head = curl(server.url(), "--head")
        self.assertEqual((head.status, head.fields["content-length"], head.body), (200, str(len(answer.body)), b""))
        self.assertEqual(server.stop(), 0)

    def test_conditions_paths_methods_and_limits(self):
        server = self.start()
        tag = curl(server.url()).fields["etag"]
        for given, status in ((tag, 304), ("*", 304), (f'W/{tag}', 304), (f'"other", {tag}', 304), ('"other"', 200),
                              (tag.strip('"'), 200)):
            with self.subTest(given):
                self.assertEqual(curl(server.url(), "-H", f"If-None-Match: {given}").status, status)
        for arguments, path, status in (
                ((), "/", 404), ((), "/v1/policy/", 404), ((), "/v1/policy?wait=x", 400), ((), "/healthz", 200),
                (("-X", "POST"), "/v1/policy", 405), (("-X", "DELETE"), "/healthz", 405), (("-X", "PUT"), "/none", 404),
                (("--data-binary", "x" * 20000), "/v1/policy", 413), (("-H", "X-Long: " + "x" * 20000), "/v1/policy", 431),
                (("-H", "Host:"), "/v1/policy", 400)):
            with self.subTest(path + " " + str(status)):
                answer = curl(server.url(path), *arguments)
                self.assertEqual(answer.status, status)
                self.assertEqual(answer.fields.get("allow"), "GET, HEAD" if status == 405 else None)
        with server.connect() as connection:
            connection.sendall(b"nonsense\r\n\r\n")
            self.assertIn(b" 400 ", read_all(connection))
        ready = json.loads(curl(server.url("/readyz")).body)
        self.assertEqual((ready["ready"], ready["database"]), (True, "reachable"))
        metrics = curl(server.url("/metrics"))
        self.assertIn("application/openmetrics-text", metrics.fields["content-type"])
        self.assertIn('zaro_server_requests_total{path="/v1/policy",status="405"} 1\n', metrics.body.decode())

    def test_a_held_request_is_answered_by_the_next_change(self):
        server = self.start()
        tag = curl(server.url()).fields["etag"]
        self.assertEqual(curl(server.url("/v1/policy?wait=30")).status, 200)
        began = time.monotonic()
        self.assertEqual(curl(server.url("/v1/policy?wait=1"), "-H", f"If-None-Match: {tag}").status, 304)
        self.assertGreaterEqual(time.monotonic() - began, 1)
        with concurrent.futures.ThreadPoolExecutor() as threads:
            held = [threads.submit(curl, server.url("/v1/policy?wait=60"), "-H", f"If-None-Match: {tag}") for _ in range(4)]
            wait_until(lambda: server.metric("zaro_server_held_requests") == 4, "four requests are held")
            version = self.installation.change("second")
            for answer in held:
                self.assertEqual((answer.result().status, lines_of(answer.result())[0]["version"]), (200, version))
        # A client that has gone is held no longer than it takes to notice.
        with server.connect() as connection:
            tag = curl(server.url()).fields["etag"]
            connection.sendall(f"GET /v1/policy?wait=300 HTTP/1.1\r\nHost: x\r\nIf-None-Match: {tag}\r\n\r\n".encode())
            wait_until(lambda: server.metric("zaro_server_held_requests") == 1, "a request is held")
        wait_until(lambda: server.metric("zaro_server_held_requests") == 0, "it is noticed")

    def test_ending_answers_held_requests_and_finishes_what_is_in_flight(self):
        # More than the buffers of both ends take.
        version = self.installation.grow()
        server = self.start()
        wait_until(lambda: curl(server.url()).status == 200, "the policy is read")
        tag = curl(server.url()).fields["etag"]
        length = int(curl(server.url(), "--head").fields["content-length"])
        with server.connect() as idle, server.connect() as held, server.connect(slow=True) as slow:
            held.sendall(f"GET /v1/policy?wait=60 HTTP/1.1\r\nHost: x\r\nIf-None-Match: {tag}\r\n\r\n".encode())
            slow.sendall(REQUEST)
            begin = slow.recv(65536)
            wait_until(lambda: server.metric("zaro_server_held_requests") == 1, "a request is held")
            server.process.send_signal(signal.SIGTERM)
            self.assertEqual(read_all(idle), b"")
            self.assertIn(b" 304 ", read_all(held))
            self.assertIsNone(server.process.poll())
            head, _, body = (begin + read_all(slow)).partition(b"\r\n\r\n")
            self.assertEqual(len(body), length)
            self.assertEqual(json.loads(body.splitlines()[0])["version"], version)
        self.assertEqual(server.stop(), 0)


class Settings(ServerTest):
    def threads_of(self, server):
        text = pathlib.Path(f"/proc/{server.process.pid}/status").read_text(encoding="ascii")
        return int(re.search(r"Threads:\s+(\d+)", text).group(1))

    def test_port_and_backlog_are_those_of_the_listening_socket(self):
        server = self.start(backlog=37)
        done = subprocess.run(["ss", "-Hltn", f"sport = :{self.installation.port}"], capture_output=True, text=True,
                              timeout=PATIENCE, check=True)
        self.assertEqual(done.stdout.split()[2:4], ["37", f"127.0.0.1:{self.installation.port}"])
        self.assertEqual(server.stop(), 0)

    def test_keep_alive(self):
        server = self.start()
        with server.connect() as connection:
            for _ in range(3):
                connection.sendall(b"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n")
                self.assertIn(b"Connection: keep-alive\r\n", connection.recv(65536))
            connection.sendall(b"GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
            self.assertIn(b"Connection: close\r\n", read_all(connection))
        server.stop()
        server = self.start(keep_alive="no")
        with server.connect() as connection:
            connection.sendall(b"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n")
            self.assertIn(b"Connection: close\r\n", read_all(connection))

    def test_receive_time_out_ends_half_a_request_and_an_idle_connection(self):
        server = self.start(recv_timeout_secs=1)
        with server.connect() as half, server.connect() as slow, server.connect() as idle:
            half.sendall(REQUEST[:20])
            began = time.monotonic()
            # Sending on, byte by byte, gives no more time.
            with self.assertRaises(OSError):
                for byte in REQUEST * 100:
                    slow.sendall(bytes([byte]))
                    time.sleep(0.05)
            self.assertGreaterEqual(time.monotonic() - began, 0.9)
            self.assertEqual((read_all(half), read_all(idle)), (b"", b""))
        self.assertEqual(server.metric('zaro_server_timeouts_total{what="receive"}'), 2)
        # A held request owes nothing.
        tag = curl(server.url()).fields["etag"]
        self.assertEqual(curl(server.url("/v1/policy?wait=2"), "-H", f"If-None-Match: {tag}").status, 304)

    def test_send_time_out_ends_a_client_that_takes_nothing(self):
        self.installation.grow()
        server = self.start(send_timeout_secs=1)
        with server.connect(slow=True) as slow:
            slow.sendall(REQUEST)
            wait_until(lambda: b'zaro_server_timeouts_total{what="send"} 1' in curl(server.url("/metrics")).body,
                       "the client is given up")
            wait_until(lambda: server.metric("zaro_server_connections") == 1, "its connection is gone")

    def test_an_absurd_number_counts_as_the_nearest_right_one(self):
        server = self.start(backlog=5000, threads=0, max_threads=1)
        done = subprocess.run(["ss", "-Hltn", f"sport = :{self.installation.port}"], capture_output=True, text=True,
                              timeout=PATIENCE, check=True)
        self.assertEqual(done.stdout.split()[2], "1000")
        self.assertEqual(server.metric("zaro_server_threads"), 1)
        server.stop()
        self.installation.set(address="nowhere")
        self.assertIn('[policy_server] address: "nowhere" is not an IP address', self.refused_start())

    @unittest.skipUnless(shutil.which("ab"), "ab is not installed")
    def test_load_by_a_client_of_others(self):
        server = self.start()
        done = subprocess.run(["ab", "-q", "-k", "-n", "2000", "-c", "50", server.url()], capture_output=True, text=True,
                              timeout=PATIENCE, check=True)
        self.assertRegex(done.stdout, r"Complete requests: +2000\n")
        self.assertRegex(done.stdout, r"Failed requests: +0\n")
        self.assertNotIn("Non-2xx", done.stdout)


class Failures(ServerTest):
    def test_goes_on_without_its_database_and_says_how_old_it_is(self):
        server = self.start()
        before = curl(server.url())
        self.installation.break_database()
        server.wait_for_log("the policy is not reloaded")
        self.assertEqual(curl(server.url()), before._replace(fields=curl(server.url()).fields))
        wait_until(lambda: json.loads(curl(server.url("/readyz")).body)["age_seconds"] >= 1, "it gets older")
        self.assertEqual(json.loads(curl(server.url("/readyz")).body)["database"], "unreachable")
        self.assertGreaterEqual(server.metric("zaro_server_policy_age_seconds"), 1)
        # A restart loses neither it nor the settings of all hosts, and its tag stays.
        self.installation.mend_database()
        self.installation.take_database_away()
        self.assertEqual(server.stop(), 0)
        server.start()
        self.assertEqual(curl(server.url()).fields["etag"], before.fields["etag"])
        self.assertEqual(server.metric("zaro_server_policy_age_seconds"), -1)
        self.installation.give_database_back()
        wait_until(lambda: json.loads(curl(server.url("/readyz")).body)["database"] == "reachable", "it is back")
        self.assertEqual(curl(server.url()).fields["etag"], before.fields["etag"])
        version = self.installation.change("second")
        server.wait_for_log(f"policy {version} is served")

    def test_without_any_policy_clients_try_again(self):
        self.installation.take_database_away()
        self.assertIn("[policy_server] backlog: it is missing in zaro.ini", self.refused_start())
        self.installation.give_database_back()
        server = self.start()  # which keeps the settings that it found
        server.stop()
        (self.installation.home / "state" / "policy-server" / "policy.snapshot").unlink()
        self.installation.take_database_away()
        server.start()
        for path in ("/v1/policy", "/v1/policy?wait=1", "/readyz"):
            answer = curl(server.url(path))
            self.assertEqual((answer.status, "retry-after" in answer.fields), (503, True))
        self.assertEqual(curl(server.url("/healthz")).status, 200)
        with concurrent.futures.ThreadPoolExecutor() as threads:
            held = threads.submit(curl, server.url("/v1/policy?wait=60"))
            wait_until(lambda: server.metric("zaro_server_held_requests") == 1, "a request is held")
            self.installation.give_database_back()
            self.assertEqual(held.result().status, 200)

    def test_a_policy_that_cannot_be_read_is_told_once_and_the_last_one_is_served(self):
        server = self.start()
        tag = curl(server.url()).fields["etag"]
        with self.installation.database() as db:
            db.execute("INSERT INTO named_object (type, name, content) VALUES (3, 'wrong', CAST(X'FF' AS TEXT))")
            version = db.execute("SELECT version FROM policy_version").fetchone()[0]
            db.commit()
        server.wait_for_log(f"error: policy {version} is not served: ")
        self.assertEqual(server.metric("zaro_server_refused_policy_version"), version)
        self.assertEqual(curl(server.url()).fields["etag"], tag)
        state = json.loads(curl(server.url("/readyz")).body)
        self.assertEqual((state["ready"], state["database"]), (True, "reachable"))
        # It is not read again, although it is not what is served.
        wait_until(lambda: server.metric("zaro_server_policy_age_seconds") > 3, "there are further looks")
        self.assertEqual(server.log().count("is not served"), 1)
        with self.installation.database() as db:
            db.execute("DELETE FROM named_object WHERE name = 'wrong'")
            db.commit()
        wait_until(lambda: server.metric("zaro_server_refused_policy_version") == 0, "the next one is served")
        self.assertEqual(server.metric("zaro_server_look_failures_total"), 0)

    def test_a_damaged_policy_on_disk_is_not_served(self):
        server = self.start()
        server.stop()
        kept = self.installation.home / "state" / "policy-server" / "policy.snapshot"
        kept.write_bytes(kept.read_bytes().replace(b"spam@bad.test", b"ham@good.test"))
        self.installation.take_database_away()
        server.start()
        self.assertIn("the policy that was kept on disk cannot be served", server.log())
        self.assertEqual(curl(server.url()).status, 503)

    def test_a_start_that_waits_for_the_database_ends_when_it_is_told_to(self):
        self.installation.hang_database()
        server = Server(self.installation)
        self.addCleanup(server.stop)
        server.launch()
        wait_until(lambda: takes_signals(server.process), "the server takes signals")
        self.assertEqual(server.stop(), 0)
        self.assertIn("info: ended", server.log())
        self.assertNotIn("info: ready", server.log())

    def test_connections_beyond_the_limit_cost_the_idlest(self):
        server = self.start_with([], wrapper=["prlimit", "--nofile=96"])  # 32 connections
        idle = [server.connect() for _ in range(32)]
        self.addCleanup(lambda: [one.close() for one in idle])
        wait_until(lambda: server.log() and self.answers(server), "a further client is served")
        self.assertEqual(idle[0].recv(1), b"")
        # Held requests are not idle: with as many as there may be, a further client is told to come back.
        tag = curl(server.url()).fields["etag"]
        hold = f"GET /v1/policy?wait=60 HTTP/1.1\r\nHost: x\r\nIf-None-Match: {tag}\r\n\r\n".encode()
        held = []
        self.addCleanup(lambda: [one.close() for one in held])

        def hold_one():
            held.append(server.connect())
            held[-1].sendall(hold)

        for one in idle:
            one.close()
        wait_until(lambda: server.metric("zaro_server_connections") == 1, "the idle ones are gone")
        for _ in range(31):
            hold_one()
        wait_until(lambda: server.metric("zaro_server_held_requests") == 31, "the last place is for the request for metrics")

        def is_full():
            hold_one()
            return not self.answers(server)

        wait_until(is_full, "no place is left")
        self.installation.change("second")
        self.assertIn(b" 200 ", held[0].recv(65536))

    def answers(self, server):
        with server.connect() as one:
            one.sendall(b"GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
            return b" 200 " in read_all(one)

    def test_a_second_server_of_the_installation_is_refused(self):
        self.start()
        self.assertIn("another program", self.refused_start())

    def test_a_taken_port_is_told(self):
        with socket.socket() as other:
            other.bind(("127.0.0.1", self.installation.port))
            other.listen()
            self.assertIn(f"cannot listen at 127.0.0.1 port {self.installation.port}: Address already in use",
                          self.refused_start())


class Administration(ServerTest):
    def test_registers_itself_once(self):
        for _ in range(2):
            server = self.start_with(["--register", "127.0.0.1"])
            server.wait_for_log("registered as policy server 1")
            server.stop()
        self.assertEqual(self.installation.zaroctl("servers", "list"), f"1\t127.0.0.1\t{self.installation.port}\n")
        self.assertIn("which other hosts do not reach", self.refused_start("--register", "192.0.2.1"))
        self.assertIn("is not an IP address", self.refused_start("--register", "policy.example.test"))

    def test_a_registration_that_fails_is_no_failure_of_the_policy(self):
        self.installation.rename_table("component", "away")
        server = self.start_with(["--register", "127.0.0.1"])
        server.wait_for_log("error: not registered: ")
        # Its policy is looked at meanwhile, and is good.
        version = self.installation.change("second")
        server.wait_for_log(f"policy {version} is served")
        self.assertEqual(json.loads(curl(server.url("/readyz")).body)["database"], "reachable")
        self.assertEqual(server.metric("zaro_server_look_failures_total"), 0)
        self.installation.rename_table("away", "component")
        server.wait_for_log("registered as policy server 1")
        self.assertEqual(server.log().count("not registered: "), 1)
        self.assertNotIn("the policy is not reloaded", server.log())

    def test_the_service_manager_is_told(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notices:
            address = str(self.directory / "notify")
            notices.bind(address)
            notices.settimeout(PATIENCE)
            server = self.start_with([], more={"NOTIFY_SOCKET": address})
            self.assertIn(b"READY=1", notices.recv(4096))
            server.reload()
            self.assertIn(b"RELOADING=1", notices.recv(4096))
            self.assertIn(b"READY=1", notices.recv(4096))
            server.stop()
            self.assertIn(b"STOPPING=1", notices.recv(4096))


if __name__ == "__main__":
    unittest.main()
