"""Memory that runs out, at each allocation of each action that makes any: a message, no crash."""

from harness import content, hold, run, write

LOG = "Dumping SEL to file out\n"
LOST = ": out of memory\nCannot read file server\n"
FRU = "Dump FRU to file out\nDump FRU to File out\nreading FRU......\n"
# Words of a run; what a whole dump ends with, or the request that changes the BMC begins with; the outcomes, when the
# first allocation fails, the second and so on, at last none; equal ones that follow each other stand once.
ACTIONS = (
    ("--sdr records", "28 27 ", (  # Clear SDR Repository
        "0, not done: line 4: out of memory\nload sdr file records failed\n",
        "0, not done: writing SDR......\npsdr_entry.sdr_data error\n",
        "0, done: writing SDR......\nUpdate successfully\n")),
    ("--sdrdump out", "\n\n)\n", (
        "0, done: ",  # without the comments of util.dat
        "0, not done: Get SDR Record 00 00 Fail\n", "0, not done: Get SDR Record 02 00 Fail\n", "0, done: ")),
    ("--seldump out", 17 * (15 * "00 " + "00\n"), (
        f"0, not done: {LOG}Get SEL Fail:\tOut of memory\n", f"0, done: {LOG}")),
    ("--fru server", "28 12 ", (  # Write FRU Data
        "1, not done: Cannot read file server\n", *(f"1, not done: line {line}{LOST}" for line in (1, 4, 6, 8)),
        "1, not done: writing FRU......\nUpdate FRU fail\n", "0, done: writing FRU......\nUpdate successfully\n")),
    ("--wfru out", "AA BB", (f"1, not done: {FRU}checksum error\n", f"0, done: {FRU}writing file......ok\n")),
)


def outcome(line, done, failing):
    """"STATUS, done or not: the last lines that it says" when this allocation fails; whether there was one."""
    write("out", "older")
    seen = run("--nrst " + line, TEST_FAILING_ALLOCATION=failing)
    whole = content("out").endswith(done) or done in seen.traffic
    assert whole or content("out") == "older"
    said = seen.said.split("file......\n")[-1]
    return f"{seen.status}, {'done' if whole else 'not done'}: {said}", seen.err != ""


def test_memory_that_runs_out_ends_an_action_with_its_message_and_nothing_half_done():
    write("util.dat", "<SDR_COMMENT_TYPE1>\nSensor Owner\n</SDR_COMMENT_TYPE1>\n")
    write("records", "_SDR\n_SDR_TYPE\n_REC_LEN 07\n01 00 51 C0 02 AA BB\n_SDR_TYPE\n_REC_LEN 06\n02 00 51 C0 01 CC\n")
    write("server", "_FRU_TITLE 'T'\n_DEV_ID 00\n_SEE_INTERNAL\n01 55\n"
                    "_SEE_CHASSIS\n01 01 17 C1 'P' C0 C2 'X1' C1\n_SEE_MULTIREC\nC0 82 02 00 00 AA BB\n")
    hold({"sel.records": bytes(17 * 16)})  # one more than the first array holds
    for line, done, expected in ACTIONS:
        outcomes, failing, failed = [], 0, True
        while failed:
            failing += 1
            said, failed = outcome(line, done, failing)
            if outcomes[-1:] != [said]:
                outcomes.append(said)
        assert outcomes == list(expected), line
