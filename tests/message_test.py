"""One request and its response: retries, bridging, and the kernel's device."""

import ctypes

from harness import BANNER, IDENTITY, run, write

DEVICE_ID = "20 01 01 23 51 BF 57 01 00 03 00 00 00 00 00"
NAME = "2C 1E 46 00 4F 70 65 72 61 74 6F 72 00 00 00 00 00 00 00 00"
TARGET = "2C 1A 46 02"  # user 2's name, of another controller
EPOCH = 1700000000  # of the simulated clock


def exchange(*requests, line="--cfg script", **how):
    """A script of these requests: what it prints for each, and the run."""
    write("script", "\n".join(requests) + "\n")
    seen = run(line, TARGETS="2c", **how)
    return [answer.strip() for answer in seen.said.split("send: ")[1:]], seen


def test_a_request_to_another_address_is_bridged_once_no_message_waits():
    c = ctypes.CDLL(None)
    c.srand(EPOCH)
    first = c.rand()
    sent = "18 30 01\n"
    for sequence in range(first, first + 130):  # twice round
        tag = sequence << 2 & 0xFF | 2
        sent += f"18 34 00 2C 1A BA 20 {tag:02X} 46 02 {-(0x20 + tag + 0x46 + 0x02) & 0xFF:02X}\n18 33\n"
    answers, seen = exchange(*[TARGET] * 130, faults="attention cmd=1")
    assert answers == 130 * [f"{TARGET} \nrecv: {NAME}"]
    assert seen.sent == sent
    assert exchange(TARGET, faults="attention cmd=1; refuse cmd=30 value=c3")[0] == [
        f"{TARGET} \nClear Receive Message Queue!\ncmd error"]
    answers, seen = exchange("20 19 01", faults="attention cmd=1")
    assert (answers, seen.sent) == ([f"20 19 01 \nrecv: 20 1D 01 00 {DEVICE_ID}"], "19 01\n"), "a direct request goes"


def test_what_goes_wrong_on_the_way_to_a_target_is_said_and_returned():
    for faults, says in (("refuse cmd=34 value=83", "Send Message Error!\nrecv: 2C 1C 34 83"),
                         ("answer cmd=34", "Send Message Error!\nrecv: 2C 1C 34"),
                         ("refuse cmd=33 value=80", "recv: 2C 1C 33 80"),
                         ("answer netfn=6 cmd=33 bytes=00001E0405060708", "recv: 2C 1C 33 00 00 1E 04 05 06 07 08"),
                         # Neither is repeated: an error that is not a time-out, and a response that is too long.
                         ("write_error cmd=33 value=1", ""), ("lengthen cmd=34 value=96", "")):
        answers, seen = exchange(TARGET, faults=faults)
        assert answers == [f"{TARGET} \n{says}".strip()], faults
        requests = 2 if says and "cmd=33" in faults else 1
        assert (seen.status, seen.sent.count("\n")) == (0 if says else 255, requests), faults
    assert exchange("2C 18 47 09")[0] == ["2C 18 47 09 \nrecv: 2C 1E 47 C7"], "11 bytes of Get Message are enough"
    wait = "KCS Waiting for SMSATN set: Timeout!\n"
    assert exchange(TARGET, SEQUENCE="wrong", ATTENTION="no")[0] == [
        f"{TARGET} \n{3 * wait}Sequence Number does not match!\nrecv: {NAME}"]


def test_a_transfer_is_tried_three_times_and_what_was_read_in_vain_does_not_count():
    answer = f"20 18 01 \nrecv: 20 1C 01 00 {DEVICE_ID}"
    for errors, expected, status in ((2, answer, 0), (3, "20 18 01 \ncmd error", 255)):
        answers, seen = exchange("20 18 01", faults=f"write_error skip=1 times={errors} value=1")
        assert (answers, seen.status) == ([expected], status)
    # The new initialisation clears the time-out, so it is not repeated.
    answers, seen = exchange("20 18 01", faults="no_dummy skip=1")
    assert answers == ["20 18 01 \nKCS Waiting for OBF set: Timeout!\nrecv: 20"]
    assert seen.traffic == "18 01\n18 01\n" + 3 * "sleep 50\n"


def test_a_request_outside_the_size_limits_or_without_an_interface_is_not_sent():
    for first, longest, answer in (("20", 131, "20 24 20 C1"), ("2C", 123, "2C 2E 2C C1")):
        assert exchange(" ".join([first] * longest))[0][0].endswith("\nrecv: " + answer)
        too_long = exchange(" ".join([first] * (longest + 1)))[1]
        assert (too_long.status, too_long.sent) == (255, "")
    no_right = 3 * "have no right to change I/O privilege level\n"
    assert run("-d", USER="nobody").out == f"{BANNER}{no_right}KCS_INIT error\n"


def test_a_response_of_the_kernel_counts_only_as_far_as_it_came():
    late = "get Device ID failed\n"
    for request, faults, kernel, says in (
            ("18 46 02", "shorten cmd=46 value=3", "", IDENTITY + "response is 1C 46 00 4F 70 \n"),
            ("18 01", "answer skip=1", "", IDENTITY + "response is 1C 01 \n"),
            ("18 02", "answer skip=1 bytes=" + 257 * "00", "",
             IDENTITY + "Error receiving message: Message too long\nresponse is 1C 02" + 256 * " 00" + " \n"),
            ("18 01", "", "send=5", 2 * ("Error sending command: Input/output error\n" + late)),
            ("18 01", "", "select=9", 2 * ("Select fail\n" + late)),
            ("18 01", "", "select=4", IDENTITY + f"response is 1C 01 00 {DEVICE_ID} \n"),
            ("18 01", "", "unreadable", 2 * ("Error no data available\n" + late)),
            ("18 01", "", "receive=5", 2 * ("Error receiving message: Input/output error\n" + late))):
        expected = (BANNER + says).removesuffix(late) + ("response is \n" if late in says else "")
        assert run("--open -e " + request, faults=faults, KERNEL=kernel).out == expected, kernel + faults
    # The kernel's device uses neither another controller's address nor a LUN.
    answers, seen = exchange(TARGET, line="--open --cfg script")
    assert (answers, seen.sent) == ([f"{TARGET} \nrecv: 20 1C {NAME[6:]}"], "18 46 02\n")
