"""Clients that ask too much, read nothing, leave in the middle or send
nonsense. They get errors, and no other client notices."""
import contextlib
import itertools
import os
import random
import xml.etree.ElementTree as ElementTree

from Support import harness
from Support.abuse import AbuseCase, Batch, LOG_TOOL, REPAIRER
from Support.bus import INTERFACE, NAME, PATH, wait_until
from Support.rawbus import (BusError, CALL, ERROR, NO_REPLY_EXPECTED, REPLY, SIGNAL, message,
                            split)
from Support.root import DATA

ERRORS = "org.freedesktop.DBus.Error"
BUS = {"destination": "org.freedesktop.DBus", "path": "/org/freedesktop/DBus",
       "interface": "org.freedesktop.DBus"}
PROGRESS = "org.keepwell.KWPrivilegedOperationProgress"


setUpModule = AbuseCase.begin_with_crowd
tearDownModule = AbuseCase.end


class ReaderTest(AbuseCase):
    """Clients that read late, or never."""

    def test_of_100000_requests_sent_at_once_each_is_answered_or_refused(self):
        flood = self.root.client()
        with self.others_answered():
            serials = [flood.send("Echo", "s", str(number)) for number in range(100000)]
        answered = []
        refused = set()
        for _ in serials:
            answer = flood.receive()
            if answer.kind == REPLY:
                answered.append(answer.reply_serial)
                self.assertEqual(answer.values()[0], str(answer.reply_serial - serials[0]))
            else:
                self.assertEqual(answer.error_name, f"{ERRORS}.LimitsExceeded")
                refused.add(answer.reply_serial)
        self.assertEqual(answered, sorted(answered))
        self.assertEqual({*answered, *refused}, set(serials))
        flood.close()

    def test_127_MiB_of_unread_answers_silence_no_other_client(self):
        flood, behind = self.root.client(), self.client_behind()
        with self.others_answered():
            for _ in range(15):  # the bus keeps no more of one sender
                for _ in range(100):
                    flood.send("Echo", "s", "x" * 100000)
                behind.call("Echo", "s", "taken")
            self.echo_large()
        for client in (flood, behind):
            client.close()

    def client_behind(self):
        """A client whose answers mean that the agent has taken all messages before
        its request. The bus itself refuses those that a slow agent has not taken."""
        return self.root.client(timeout=300 if harness.is_instrumented() else 30)

    def echo_large(self):
        """A client that comes now gets replies for which many others also want
        room."""
        for size in (100000, 1 << 20, 8 << 20, 15 << 20):
            large = self.root.client()
            self.assertEqual(len(large.call("Echo", "s", "y" * size)[0]), size)
            large.close()

    def test_several_clients_that_read_nothing_leave_room_for_the_rest(self):
        floods, behind = [self.root.client() for _ in range(12)], self.client_behind()
        with self.others_answered():
            for flood in floods:
                flood.send("Echo", "s", "x" * (15 << 20))
                behind.call("Echo", "s", "taken")
            self.echo_large()
        for client in (*floods, behind):
            client.close()

    def test_a_client_that_reads_each_answer_before_it_asks_again_loses_none(self):
        usual = "org.freedesktop.DBus"
        questions = {"Ping": {"interface": f"{usual}.Peer"},
                     "Introspect": {"interface": f"{usual}.Introspectable"},
                     "Nonsense": {}}
        for _ in range(12):  # each as much as one client was once allowed
            client = self.root.client()
            for number in range(511):
                self.ask_usual(client, "Ping", questions["Ping"])
            client.close()
        client = self.root.client(timeout=20)
        with self.others_answered():
            for number in range(3000):
                member = list(questions)[number % len(questions)]
                self.ask_usual(client, member, questions[member])
        client.close()

    def ask_usual(self, client, member, options):
        with contextlib.suppress(BusError):
            client.call(member, **options)

    def test_answers_kept_back_come_when_the_client_reads(self):
        slow = self.root.client()
        texts = [f"{number}" + "x" * 200000 for number in range(200)]
        serials = [slow.send("Echo", "s", text) for text in texts]
        with self.others_answered():
            self.assertEqual([slow.wait(serial)[0] for serial in serials], texts)
        slow.close()

    def test_unread_descriptions_silence_no_other_client(self):
        flood = self.root.client()
        with self.others_answered():
            for _ in range(20000):
                flood.send("Introspect", interface="org.freedesktop.DBus.Introspectable")
        flood.close()

    def test_unread_refusals_silence_no_other_client(self):
        # More than the bus keeps of one sender: all of one kind, and of each kind.
        floods = [self.root.client() for _ in range(2)]
        kinds = self.refused(floods[0])
        batches = [Batch(calls, 5000) for calls in (kinds[:1], kinds)]
        with self.others_answered():
            for _ in range(80):
                for flood, batch in zip(floods, batches):
                    self.send_batch(flood, batch)
            self.echo_large()
        for flood in floods:
            flood.close()

    @staticmethod
    def refused(client):
        """Calls that the agent refuses."""
        fields = client.call_fields
        without = {code: value for code, value in fields("Echo").items() if code != 2}
        return [(fields("x" * 255), "", ()), (fields("Echo"), "u", (7,)), (without, "s", ("x",)),
                (fields("Echo", path="/elsewhere"), "s", ("x",)),
                (fields("Echo", interface="org.example.Other"), "s", ("x",)),
                (fields("Nonsense", interface="org.freedesktop.DBus.Peer"), "", ()),
                (fields("Get", interface="org.freedesktop.DBus.Properties"), "ss",
                 (INTERFACE, "Nothing"))]

    def test_unread_progress_silences_no_other_client_and_the_reply_comes(self):
        self.root.stand_in(REPAIRER, script="head -c 200000000 /dev/zero | tr '\\0' x")
        caller = self.root.client(timeout=120)
        before = len(self.root.calls())
        serial = caller.send("RepairPermissions")
        with self.others_answered():
            # Nothing is read before the tool has written all.
            wait_until(lambda: len(self.root.calls()) > before)
            wait_until(lambda: self.root.agent_usage().children == 0, 60)
        self.assertTrue(caller.wait(serial)[0])
        self.assertTrue(any(signal.member == "ReceiveNewOutput" for signal in caller.signals))
        caller.close()

    def test_progress_of_clients_that_vanish_or_flood_back_does_no_harm(self):
        self.root.stand_in(REPAIRER, script="for i in 1 2 3 4 5 6 7 8 9; do echo chunk; "
                           "sleep 0.02; done")
        with self.others_answered():
            callers = [self.root.client() for _ in range(20)]
            serials = [caller.send("RepairPermissions") for caller in callers]
            for caller in callers[:10]:
                caller.close()
            for caller in callers[10:15]:
                for _ in range(1000):  # as if the agent asked, and as if it was asked
                    caller.send_message(SIGNAL, {1: ("o", PATH), 2: ("s", PROGRESS),
                                                 3: ("s", "ReceiveNewOutput"), 6: ("s", NAME)},
                                        "s", ["back to you"])
                    caller.send("ReceiveNewOutput", "s", "back to you", interface=PROGRESS)
            for caller, serial in zip(callers[10:], serials[10:]):
                self.assertTrue(caller.wait(serial)[0])
                caller.close()


class LeavingTest(AbuseCase):
    def test_clients_that_leave_within_a_request_or_a_message_are_forgotten(self):
        numbers = random.Random(1)
        members = (("Echo", "x"), ("FileExistsAtPath", DATA), ("SizeOfItemAtPath", "/etc"),
                   ("RemoveItemAtPath", f"{DATA}/nothing"), ("StartStartupItem", "item"),
                   ("TruncateFileAtPath", f"{DATA}/nothing"))
        with self.others_answered():
            for _ in range(300):
                client = self.root.client()
                for member, argument in numbers.choices(members, k=3):
                    client.send(member, "s", argument)
                whole = message(CALL, client.next_serial(), client.call_fields("Echo"), "s", ["x"])
                client.send_bytes(whole[:numbers.randrange(len(whole))])
                client.close()

    def test_nothing_attached_to_a_call_reaches_the_agent(self):
        client = self.root.client(descriptors=True)
        attached = [os.open("/dev/null", os.O_RDONLY) for _ in range(16)]
        before = self.root.agent_descriptors()
        refusal = f"{ERRORS}.Failed" if harness.broker else f"{ERRORS}.NotSupported"
        with self.others_answered():
            for signature, value in (("s", "x"), ("h", 0)) * 25:
                fields = {**client.call_fields("Echo"), 9: ("u", len(attached))}
                client.send_bytes(message(CALL, client.next_serial(), fields, signature, [value]),
                                  attached)
                # The bus says so: the agent takes no descriptors.
                self.assertEqual(client.receive().error_name, refusal)
        self.assertEqual(self.root.agent_descriptors(), before)
        for descriptor in attached:
            os.close(descriptor)
        client.close()


class NameTest(AbuseCase):
    def request_name(self, client, name, flags):
        return client.call("RequestName", "su", name, flags, **BUS)[0]

    def test_the_name_of_a_running_agent_cannot_be_taken(self):
        thief = self.root.client()
        replace, do_not_queue = 2, 4
        exists, in_queue = 3, 2
        self.assertEqual(self.request_name(thief, NAME, replace | do_not_queue), exists)
        owner = self.root.bus_call("GetNameOwner", "s", NAME)
        self.assertEqual(self.request_name(thief, NAME, replace), in_queue)
        with self.others_answered():
            self.assertEqual(self.root.bus_call("GetNameOwner", "s", NAME), owner)
        thief.close()

    def test_a_name_that_changes_hands_takes_no_answers_along(self):
        first, second = self.root.client(), self.root.client()
        self.assertEqual(self.request_name(first, "org.example.Sink", 1), 1)
        blocked = self.block(first)
        self.assertEqual(self.request_name(second, "org.example.Sink", 2), 1)
        with self.others_answered():
            self.open_gate()
            self.assertTrue(first.wait(blocked)[0])
        self.assertEqual(second.call("Echo", "s", "own")[0], "own")
        self.assertEqual(second.count_received(), 0)
        first.close()
        second.close()

    def test_news_of_the_bus_that_a_client_makes_up_are_not_believed(self):
        victim, liar = self.root.client(), self.root.client()
        blocked = self.block(victim)
        waiting = victim.send("Echo", "s", "waiting")
        name = victim.unique_name
        for fields in ({6: ("s", NAME)}, {}):
            liar.send_message(SIGNAL, {1: ("o", "/org/freedesktop/DBus"),
                                       2: ("s", "org.freedesktop.DBus"),
                                       3: ("s", "NameOwnerChanged"),
                                       7: ("s", "org.freedesktop.DBus"), **fields},
                              "sss", [name, name, ""])
        with self.others_answered():
            for kind, serial in itertools.product((REPLY, ERROR), range(1, 50)):
                liar.send_message(kind, {5: ("u", serial), 6: ("s", NAME),
                                         **({4: ("s", "org.example.Lie")} if kind == ERROR
                                            else {})}, "s", ["lie"])
        self.open_gate()
        self.assertTrue(victim.wait(blocked)[0])
        self.assertEqual(victim.wait(waiting)[0], "waiting")
        victim.close()
        liar.close()


class MessageTest(AbuseCase):
    """Odd, wrong and malformed messages."""

    SAMPLES = {"y": 1, "b": 1, "n": 1, "q": 1, "i": 1, "u": 1, "x": 1, "t": 1, "d": 1.5, "s": "x",
               "o": "/x", "g": "as", "v": ("s", "x"), "as": ["x"], "ao": ["/x"], "ay": [1],
               "a{ss}": {"x": "y"}, "a{sv}": {"x": ("i", 1)}, "(s)": ["x"], "(ss)": ["x", "y"],
               "aas": [["x"]], "av": [("s", "x")], "a(ss)": [["x", "y"]]}

    def served(self):
        """Each member of the interface with the types of its arguments."""
        text = self.other.call("Introspect", interface="org.freedesktop.DBus.Introspectable")[0]
        interface = ElementTree.fromstring(text).find(f"interface[@name='{INTERFACE}']")
        return {method.get("name"): "".join(
                    each.get("type") for each in method.findall("arg")
                    if each.get("direction") != "out") for method in interface.findall("method")}

    def test_every_member_refuses_every_wrong_signature(self):
        members = self.served()
        self.assertEqual(len(members), 26)
        client = self.root.client()
        self.root.forget_calls()
        refused = 0
        with self.others_answered():
            for member, right in members.items():
                wrong = [*self.SAMPLES, "", right + "s", right + "v", right * 2, "s" * 250]
                for signature in {each for each in wrong if each != right}:
                    arguments = self.arguments(signature)
                    with self.subTest(member=member, signature=signature), \
                            self.assertRaises(BusError) as raised:
                        client.call(member, signature, *arguments)
                    self.assertEqual(raised.exception.name, f"{ERRORS}.InvalidArgs")
                    refused += 1
        self.assertGreater(refused, 26 * 23)
        self.assertEqual(self.root.calls(), [])
        client.close()

    def arguments(self, signature):
        return [self.SAMPLES[kind] for kind in split(signature)]

    def test_huge_arrays_are_refused_or_cost_their_sender_the_connection(self):
        missing = f"{DATA}/missing"
        client = self.root.client()
        with self.others_answered():
            self.assertTrue(client.call("SlimBinaryWithPath", "sas", missing, ["x"] * 200000)[0])
            for archs in ([""] * 2000000, ["x" * (1 << 20)] * 20):
                with self.assertRaises(BusError) as raised:
                    client.call("SlimBinaryWithPath", "sas", missing, archs)
                self.assertEqual(raised.exception.name, f"{ERRORS}.LimitsExceeded")
            # The bus's own limit; the other bus has no such low limit.
            with self.assertRaises(BusError if harness.broker else OSError):
                client.call("SlimBinaryWithPath", "sas", missing, ["x" * (1 << 20)] * 40)
        client.close()

    def test_values_nested_as_deep_as_the_bus_allows_are_refused(self):
        answers = set()
        with self.others_answered():
            for signature, value in deep_values():
                client = self.root.client()
                try:
                    client.call("Echo", signature, value)
                    self.fail("a nested value was taken for text")
                except BusError as error:
                    answers.add(error.name)
                except OSError:  # deeper than the bus allows
                    answers.add("disconnected")
                client.close()
        self.assertEqual(answers, {f"{ERRORS}.InvalidArgs", "disconnected"})

    def test_odd_forms_of_right_calls_are_answered(self):
        client = self.root.client()
        with self.others_answered():
            self.assertEqual(client.call("Echo", "s", "big end first", order=">")[0],
                             "big end first")
            fields = client.call_fields("Echo")
            without = {code: fields[code] for code in fields if code != 2}
            with self.assertRaises(BusError):  # the bus library wants an interface
                client.wait(client.send_message(CALL, without, "s", ["x"]))
            unknown = {**fields, 77: ("s", "of a later version")}
            self.assertEqual(client.wait(client.send_message(CALL, unknown, "s", ["x"]))[0], "x")
            client.send("Echo", "s", "no answer, please", flags=NO_REPLY_EXPECTED)
            # The longest signature there is; the bus library drops it unseen.
            client.send("Echo", "s" * 255, *["x"] * 255)
            self.assertEqual(client.call("Echo", "s", "odd flags", flags=0xF6)[0], "odd flags")
            self.assertEqual(client.call("Echo", "s", "")[0], "")
        self.assertEqual(client.count_received(), 0)
        client.close()

    def test_other_usual_questions_are_answered_or_refused(self):
        client = self.root.client()
        with self.others_answered():
            for interface, member, signature, arguments in (
                    ("Properties", "Get", "ss", (INTERFACE, "Nothing")),
                    ("Properties", "Set", "ssv", (INTERFACE, "Nothing", ("s", "x"))),
                    ("Properties", "GetAll", "s", ("org.example.Other",)),
                    ("ObjectManager", "GetManagedObjects", "", ()),
                    ("Peer", "Nonsense", "", ())):
                with self.assertRaises(BusError):
                    client.call(member, signature, *arguments,
                                interface=f"org.freedesktop.DBus.{interface}")
            self.assertEqual(len(client.call("GetMachineId",
                                             interface="org.freedesktop.DBus.Peer")[0]), 32)
        client.close()

    def test_messages_damaged_at_random_end_no_more_than_their_connection(self):
        numbers = random.Random(7)
        with self.others_answered():
            for _ in range(1000):
                client = self.root.client()
                whole = bytearray(message(CALL, client.next_serial(), client.call_fields("Echo"),
                                          "s", ["something"]))
                for _ in range(numbers.choice((1, 1, 2, 4))):
                    whole[numbers.randrange(len(whole))] = numbers.randrange(256)
                with contextlib.suppress(OSError):
                    client.send_bytes(bytes(whole))
                client.end()

    def test_a_reply_too_large_for_a_message_fails_and_the_next_does_not(self):
        client = self.root.client()
        with self.others_answered():
            # Each byte of invalid UTF-8 takes three.
            for content in ("head -c 17000000 /dev/zero | tr '\\0' x",
                            "head -c 12582912 /dev/zero", "head -c 45000000 /dev/zero"):
                self.root.stand_in(LOG_TOOL, script=content)
                with self.assertRaises(BusError) as raised:
                    client.call("RemoveDiagnosticLogs")
                self.assertEqual(raised.exception.name, f"{ERRORS}.Failed")
            for content, size in (("head -c 16000000 /dev/zero | tr '\\0' x", 16000000),
                                  ("head -c 5000000 /dev/zero", 5000000)):
                self.root.stand_in(LOG_TOOL, script=content)
                self.assertEqual(len(client.call("RemoveDiagnosticLogs")[0]), size)
        self.assertIn("too large for a message", self.root.log())
        client.close()

    def test_an_error_with_the_longest_path_of_a_request_comes_whole(self):
        client = self.root.client()
        path = "/" + "x" * ((16 << 20) - 8)  # the most that a request may hold, and then the error
        with self.others_answered():
            flag, (domain, code, details) = client.call("MoveItemAtPath", "ss", path, "/y")
        self.assertFalse(flag)
        self.assertEqual(domain, "NSCocoaErrorDomain")
        self.assertEqual(details["NSFilePath"], path)
        self.assertGreater(code, 0)
        client.close()


def deep_values():
    """Values nested by each kind of container, from shallow to deeper than any
    bus permits."""
    for depth in (1, 8, 31, 32, 33, 60, 64, 65, 100, 300):
        value = ("s", "x")
        for _ in range(depth):
            value = ("v", value)
        yield "v", value
    for depth in (1, 31, 32, 33):
        value = "x"
        for _ in range(depth):
            value = [value]
        yield "a" * depth + "s", value
        yield "(" * depth + "s" + ")" * depth, value
    for depth in (1, 15, 31):
        value = "x"
        for _ in range(depth):
            value = [[value]]
        yield "a(" * depth + "s" + ")" * depth, value


if __name__ == "__main__":
    harness.main()
