#!/usr/bin/env python3
"""obfl-wire end to end: tool_test.py OBFL_WIRE PROTOC GROUP, one GROUP per ctest test."""
import json, os, re, subprocess, sys, tempfile

TOOL, PROTOC, GROUP = sys.argv[1:4]


def run(*args, stdin=b"", tool=True):
    p = subprocess.run(([TOOL] if tool else []) + list(args), input=stdin, capture_output=True)
    return p.returncode, p.stdout.decode(), p.stderr.decode()


def ok(*args, stdin=""):
    rc, out, err = run(*args, stdin=stdin.encode())
    assert rc == 0 and not err, (args, rc, err)
    return out


# Worked examples of the catalogue: (message, JSON, bytes). JSON as decode prints it.
V1, SYSLOG = "mivo_OBFL_CUR_VERSION", "mivo_OBFL_SVC_SYSLOG"
WORKED = [
    ("mgbl_hello", {"version": V1, "timestamp": 300, "is_resend_msg": True, "seq_num": 7, "respawn": False},
     "08 01 10 AC 02 18 01 20 07 28 00"),
    ("mgbl_hello_done", {"err_code": "4294967296"}, "18 80 80 80 80 10"),
    ("mgbl_notify_locations", {"location_name": ["a", "bc"]}, "2A 01 61 2A 02 62 63"),
    ("mgbl_request", {"req_type": "mivo_OBFL_MGBL_ERASE", "rec_type": "mivo_OBFL_REC_SYSLOG"}, "38 03 48 07"),
    ("mgbl_request_done", {"data": "AQID"}, "6A 03 01 02 03"),
    ("svc_regn", {"seq_num": 1, "svc_name": "ab", "svc_type": SYSLOG, "client_comp_id": 200},
     "30 01 3A 02 61 62 40 04 50 C8 01"),
    ("svc_unregn", {"seq_num": 1, "svc_name": "ab", "svc_type": SYSLOG, "client_comp_id": 200},
     "38 01 42 02 61 62 48 04 58 C8 01"),
    ("svc_regn_done", {"client_id": 5, "svc_type": SYSLOG, "err_code": "0", "r_msn": 9}, "18 05 20 04 28 00 30 09"),
    ("write_env_pep_record_done", {"version": V1, "client_id": 7, "err_code": "4294967296", "r_msn": 5},
     "08 01 18 07 20 80 80 80 80 10 28 05"),
    ("write_env_raw_record", {"env_raw": ["AQI=", "Aw=="]}, "6A 02 01 02 6A 01 03"),
    ("write_env_temp_thresholds", {"max_temp_diff": 10, "sensor_id": [5, 300], "sensor_name": ["abc"]},
     "50 0A 60 05 60 AC 02 6A 03 61 62 63"),
    ("write_syslog_thresholds_done", {"err_code": "3"}, "20 03"),
    ("log_env_sensor_info",
     {"version": V1, "sensor_type": "mivo_OBFL_SENSOR_TEMP", "sensor_id": 4, "value": -5, "scale": -1},
     "08 01 40 01 48 04 58 FB FF FF FF 0F 60 FF FF FF FF 0F"),
    ("log_bulk_env_sensor_info", {"value": [1, -1], "scale": [-3]}, "60 01 60 FF FF FF FF 0F 68 FD FF FF FF 0F"),
    ("log_bulk_env_sensor_info_done", {"sensor_type": "mivo_OBFL_SENSOR_VOLT", "ret_errors": ["0", "5"]},
     "30 02 38 00 38 05"),
    ("log_diag_record", {"err_code": 300, "last_test_pass_ts": 1}, "68 AC 02 98 01 01"),
    ("log_diag_record_done", {"rec_type": "mivo_OBFL_REC_DIAG_RESULT"}, "30 0C"),
    ("log_uptime", {"version": V1, "client_id": 2, "seq_num": 3, "write_interval": 60}, "08 01 28 02 38 03 50 3C"),
    ("log_syslog", {"svc_type": SYSLOG, "severity": "mivo_OBFL_SYSLOG_SEV_CRITICAL", "data": "abc"},
     "40 04 58 01 6A 03 61 62 63"),
]

# Other spellings that the tool accepts: (arguments, standard input, expected output).
FORMS = [
    (["decode", "mivo_mgbl_hello"], "0x08:01 10ac02\n", {"version": V1, "timestamp": 300}),
    (["decode", "mgbl_request"], "38 63", {"req_type": 99}),  # unnamed values stay numbers
    (["decode", "--hex-bytes", "mgbl_request_done"], "6A 03 01 02 03", {"data": "010203"}),
    (["decode", "--shared", "mgbl_request_done"], "6A 03 01 02 03", {"data": "AQID"}),
    (["encode", "--hex-bytes", "mgbl_request_done"], '{"data": "010203"}', "6A 03 01 02 03"),
    (["encode", "log_syslog"], '{"severity": "CRITICAL", "client_id": "7", "data": null}', "28 07 58 01"),
    (["encode", "log_env_sensor_info"], '{"value": -2147483648, "scale": 3.0}', "58 80 80 80 80 08 60 03"),
]

# Refused input: (arguments, standard input, exit status, the one line on standard error).
ERRORS = [
    (["encode", "log_syslog"], '{"client_id": 99999999999}', 2,
     "log_syslog: client_id: 99999999999 is out of range for uint32 (0 to 4294967295)"),
    (["encode", "log_syslog"], '{"client_id": -1}', 2, "log_syslog: client_id: -1 is negative, but uint32 is unsigned"),
    (["encode", "log_syslog"], '{"seq_num": 1.5}', 2, "log_syslog: seq_num: 1.5 is a fraction, not an integer"),
    (["encode", "log_syslog"], '{"timestamp": "soon"}', 2, "log_syslog: timestamp: 'soon' is not a number"),
    (["encode", "log_env_sensor_info"], '{"value": 2147483648}', 2,
     "log_env_sensor_info: value: 2147483648 is out of range for int32 (-2147483648 to 2147483647)"),
    (["encode", "log_syslog_done"], '{"err_code": "18446744073709551616"}', 2,
     "log_syslog_done: err_code: 18446744073709551616 is out of range for uint64"),
    (["encode", "log_syslog"], '{"sevrity": 1}', 2, "log_syslog: sevrity: no such member"),
    (["encode", "log_syslog"], '{"severity": "LOUD"}', 2, "log_syslog: severity: 'LOUD' is no constant of enum mivo_syslog_sev_e"),
    (["encode", "log_syslog"], '{"tgt_eid": {"tsi": [{"instance": -1}]}}', 2,
     "log_syslog: tgt_eid.tsi[0].instance: -1 is negative, but uint32 is unsigned"),
    (["encode", "log_syslog"], '{"tgt_eid": {"rack": 1}}', 2, "log_syslog: tgt_eid.rack: no such member in tgt_eid"),
    (["encode", "log_syslog"], '{"is_resend_msg": 1}', 2, "log_syslog: is_resend_msg: expected true or false, got number 1"),
    (["encode", "log_syslog"], '{"data": 5}', 2, "log_syslog: data: expected a string, got number 5"),
    (["encode", "mgbl_request_done"], '{"data": "!!"}', 2, "mgbl_request_done: data: '!!' is not base64"),
    (["encode", "mgbl_notify_locations"], '{"location_name": "a"}', 2,
     'mgbl_notify_locations: location_name: expected an array, got string "a"'),
    (["encode", "log_syslog"], '[]', 2, "log_syslog: message: expected an object, got array"),
    (["encode", "log_syslog"], '{"data": ', 2, "input is not JSON"),
    (["decode", "log_syslog"], "6A 05 61", 1, "log_syslog: MIVO_ERROR_GARBLED"),
    (["decode", "mgbl_hello"], "08 01 12 00", 1, "mgbl_hello: MIVO_ERROR_WRONG_TYPE"),
    (["decode", "mgbl_hello"], "33", 1, "mgbl_hello: MIVO_ERROR_UNSUPPORTED"),
    (["decode", "mgbl_hello"], "08 0", 2, "input is not hex (give raw bytes with --binary)"),
    (["decode", "hello"], "", 2, "no message 'hello' (see 'obfl-wire list')"),
    (["guess"], "12 00", 1, "no message accepts these bytes"),
]

# guess: (bytes, the best message, its members filled).
GUESSES = [
    ("98 01 01", "log_diag_record", 1),
    ("2A 01 61 2A 02 62 63", "mgbl_notify_locations", 1),
    ("30 02 38 00 38 05", "log_bulk_env_sensor_info_done", 2),
    ("40 04 58 01 6A 03 61 62 63", "log_syslog", 3),  # named constants outweigh a snugger record
    ("30 01 3A 02 61 62 40 04 50 C8 01", "svc_regn", 4),
]

# A value for every member of a kind (named by describe), for the round trips.
EID = {"rack_num": 3, "tsi": [{"type": "mivo_TESK_ENTITY_TYPE_CHASSIS", "sub_type": {"subtype_cpu": 7}, "instance": 1}]}
SAMPLE = {"UINT32": 4294967295, "INT32": -2147483648, "UINT64": "18446744073709551615", "BOOL": True, "ENUM": 99,
          "STRING": "caf\u00e9", "BYTES": "AAH/", "EID": EID, "REP_UINT32": [0, 4294967295],
          "REP_INT32": [-1, 2147483647], "REP_UINT64": ["0", "18446744073709551615"], "REP_STRING": ["", "b"],
          "REP_BYTES": ["", "AQI="]}


def check_worked():
    for name, record, hexed in WORKED:
        assert ok("encode", name, stdin=json.dumps(record)).strip() == hexed, name
        assert json.loads(ok("decode", name, stdin=hexed)) == record, name


def check_forms():
    for args, stdin, want in FORMS:
        out = ok(*args, stdin=stdin)
        assert (json.loads(out) if isinstance(want, dict) else out.strip()) == want, (args, out)


def check_errors():
    for args, stdin, status, line in ERRORS:
        rc, out, err = run(*args, stdin=stdin.encode())
        assert (rc, out, err) == (status, "", "obfl-wire: " + line + "\n"), (args, rc, out, err)
    assert run()[0] == 2 and run("encode")[0] == 2 and run("decode", "--help")[0] == 0


def check_guess():
    for hexed, best, filled in GUESSES:
        lines = ok("guess", "--compact", stdin=hexed).splitlines()
        assert re.match(rf"{best} +{filled} members? filled, 0 bytes skipped$", lines[0]), (hexed, lines[0])
        assert json.loads(lines[-1]) == json.loads(ok("decode", best, stdin=hexed)), hexed


def check_round_trips():
    with tempfile.TemporaryDirectory() as tmp:
        with open(os.path.join(tmp, "obfl.proto"), "w") as f:
            f.write(ok("proto"))
        names = [line.split()[0] for line in ok("list").splitlines()]
        assert len(names) == 37
        for name in names:
            record = {m: SAMPLE[kind] for _, m, kind, *_ in map(str.split, ok("describe", name).splitlines())}
            hexed = ok("encode", name, stdin=json.dumps(record)).strip()
            back = ok("decode", name, stdin=hexed)
            assert json.loads(back) == record and ok("encode", name, stdin=back).strip() == hexed, name
            wire = bytes.fromhex(hexed)
            proto = ["--proto_path=" + tmp, "obfl.proto"]
            rc, text, err = run(PROTOC, "--decode=obfl." + name, *proto, stdin=wire, tool=False)
            # Every value shows in its own member: no field left unknown (a bare "11: 99").
            assert rc == 0 and not re.search(r"^\s*\d+:", text, re.M), (name, err, text)
            again = subprocess.run([PROTOC, "--encode=obfl." + name] + proto, input=text.encode(),
                                   capture_output=True, check=True).stdout
            assert json.loads(ok("decode", name, stdin=again.hex())) == record, name


{"worked": check_worked, "forms": check_forms, "errors": check_errors, "guess": check_guess,
 "round_trips": check_round_trips}[GROUP]()
print(GROUP, "passed")
