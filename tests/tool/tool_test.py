#!/usr/bin/env python3
"""obfl-wire end to end: tool_test.py OBFL_WIRE PROTOC WORKED_EXAMPLES GROUP, one GROUP per ctest test."""
import json, os, re, select, subprocess, sys, tempfile

TOOL, PROTOC, WORKED, GROUP = sys.argv[1:5]


def run(args, stdin=b"", stdout=subprocess.PIPE):
    p = subprocess.run(args, input=stdin, stdout=stdout, stderr=subprocess.PIPE)
    return p.returncode, p.stdout or b"", p.stderr.decode()


def ok(*args, stdin=b""):
    rc, out, err = run([TOOL, *args], stdin)
    assert rc == 0 and not err, (args, rc, err)
    return out.decode()


V1, SYSLOG, E = "mivo_OBFL_CUR_VERSION", "mivo_OBFL_SVC_SYSLOG", "obfl-wire: "
W, WT = E + "warning: log_syslog: ", E + "warning: write_env_temp_thresholds: "
GARBLED = E + "log_syslog: MIVO_ERROR_GARBLED at byte "
FULL, CLOSED = ">/dev/full", ">closed pipe"  # where standard output goes, as a last argument
EID_HEX = "08 01 1A 08 10 03 32 04 08 03 18 01 28 07 58 02 6A 03 61 62 63"
EID = {"rack_num": 3, "tsi": [{"type": "mivo_TESK_ENTITY_TYPE_CHASSIS", "instance": 1}]}
SYSLOG_JSON = {"version": V1, "tgt_eid": EID, "client_id": 7, "severity": "mivo_OBFL_SYSLOG_SEV_ALERT", "data": "abc"}


def raw_field(n, t, at, **value):
    return {"field": n, "wire_type": t, "offset": at, **value}


NESTED_33 = "08 01"  # 33 length-delimited levels around one varint
for _ in range(33):
    NESTED_33 = "0A %02X " % (len(NESTED_33) // 3 + 1) + NESTED_33


# (arguments, standard input, exit status, standard output, standard error). Output is compared as
# text (str or bytes), as one JSON object per line (list), or as one JSON document (dict).
ROWS = [
    # spellings that are accepted
    (["decode", "mivo_mgbl_hello"], "0x08:01 10ac02\n", 0, [{"version": V1, "timestamp": 300}], ""),
    (["decode", "mgbl_request"], "38 63", 0, [{"req_type": 99}], ""),  # unnamed values stay numbers
    (["decode", "--hex-bytes", "mgbl_request_done"], "6A 03 01 02 03", 0, [{"data": "010203"}], ""),
    (["decode", "--shared", "mgbl_request_done"], "6A 03 01 02 03", 0, [{"data": "AQID"}], ""),
    (["decode", "log_syslog"], EID_HEX, 0, [SYSLOG_JSON], ""),
    (["decode", "--pretty", "log_syslog"], "28 07", 0, '{\n  "client_id": 7\n}\n', ""),
    (["encode", "log_syslog"], json.dumps(SYSLOG_JSON), 0, EID_HEX + "\n", ""),
    (["encode", "--binary", "log_syslog"], '{"client_id": 7}', 0, b"\x28\x07", ""),
    (["encode", "log_syslog"], '{"severity": "CRITICAL", "client_id": "7", "data": null}', 0, "28 07 58 01\n", ""),
    (["encode", "log_env_sensor_info"], '{"value": -2147483648, "scale": 3.0}', 0, "58 80 80 80 80 08 60 03\n", ""),
    (["encode", "log_syslog"], '{"clientId": 7, "isResendMsg": true, "tgtEid": {"rackNum": 3}}', 0,
     "1A 02 10 03 28 07 30 01\n", ""),
    (["decode", "--proto-json", "log_syslog"], EID_HEX, 0,
     [{"version": 1, "tgtEid": {"rackNum": 3, "tsi": [{"type": 3, "instance": 1}]}, "clientId": 7, "severity": 2,
       "data": "abc"}], ""),
    (["--version"], "", 0, re.compile(r"obfl-wire \d+\.\d+\.\d+\n"), ""),
    # refused input: one line, a defined status
    (["encode", "log_syslog"], '{"client_id": 99999999999}', 2, "",
     E + "log_syslog: client_id: 99999999999 is out of range for uint32 (0 to 4294967295)"),
    (["encode", "log_syslog"], '{"client_id": -1}', 2, "", E + "log_syslog: client_id: -1 is negative, but uint32 is unsigned"),
    (["encode", "log_syslog"], '{"seq_num": 1.50}', 2, "", E + "log_syslog: seq_num: 1.50 is a fraction, not an integer"),
    (["encode", "log_syslog"], '{"client_id": 18446744073709551616}', 2, "",  # echoed as given, not as a double
     E + "log_syslog: client_id: 18446744073709551616 is out of range for uint32"),
    (["encode", "log_syslog"], '{"timestamp": "soon"}', 2, "", E + "log_syslog: timestamp: 'soon' is not a number"),
    (["encode", "log_env_sensor_info"], '{"value": 2147483648}', 2, "",
     E + "log_env_sensor_info: value: 2147483648 is out of range for int32 (-2147483648 to 2147483647)"),
    (["encode", "log_syslog_done"], '{"err_code": "18446744073709551616"}', 2, "",
     E + "log_syslog_done: err_code: 18446744073709551616 is out of range for uint64"),
    (["encode", "log_syslog"], '{"sevrity": 1}', 2, "", E + "log_syslog: sevrity: no such member; did you mean severity?"),
    (["encode", "log_syslog"], '{"severity": "LOUD"}', 2, "",
     E + "log_syslog: severity: 'LOUD' is no constant of enum mivo_syslog_sev_e"),
    (["encode", "log_syslog"], '{"tgt_eid": {"tsi": [{"instance": -1}]}}', 2, "",
     E + "log_syslog: tgt_eid.tsi[0].instance: -1 is negative, but uint32 is unsigned"),
    (["encode", "log_syslog"], '{"tgt_eid": {"rack": 1}}', 2, "", E + "log_syslog: tgt_eid.rack: no such member in tgt_eid"),
    (["encode", "log_syslog"], '{"is_resend_msg": 1}', 2, "",
     E + "log_syslog: is_resend_msg: expected true or false, got number 1"),
    (["encode", "log_syslog"], '{"data": 5}', 2, "", E + "log_syslog: data: expected a string, got number 5"),
    (["encode", "mgbl_request_done"], '{"data": "!!"}', 2, "", E + "mgbl_request_done: data: '!!' is not base64"),
    (["encode", "mgbl_notify_locations"], '{"location_name": "a"}', 2, "",
     E + 'mgbl_notify_locations: location_name: expected an array, got string "a"'),
    (["encode", "log_syslog"], '[]', 2, "", E + "log_syslog: message: expected an object, got array"),
    (["encode", "log_syslog"], '{\n "data": }', 2, "",
     E + "not JSON: line 2, column 10: syntax error while parsing value - unexpected '}'; expected '[', '{', or a literal"),
    (["encode", "log_syslog"], '{"data": "a", "tgt_eid": {}, "data": "b"}', 2, "",
     E + "not JSON: key 'data' given twice in one object"),
    (["encode", "log_syslog"], '{"tgt_eid": {"version": 1, "version": 2}}', 2, "",
     E + "not JSON: key 'version' given twice in one object"),
    (["encode", "log_syslog"], '{"client_id": 1e400}', 2, "", E + "not JSON: number overflow parsing '1e400'"),
    (["decode", "log_syslog"], "6A 05 61", 1, "",
     GARBLED + "0 in data: length 5 runs past the end of the input (1 bytes left)"),
    (["decode", "log_syslog"], "1A 03 08 01 38", 1, "", GARBLED + "4 in tgt_eid: the varint runs past the end of tgt_eid"),
    (["decode", "log_syslog"], "6A 01 61 6A 01 62", 1, "", GARBLED + "3 in data: the member occurs a second time"),
    (["decode", "mgbl_hello"], "08 01 12 00", 1, "",
     E + "mgbl_hello: MIVO_ERROR_WRONG_TYPE at byte 2 in timestamp: field 2 has wire type 2, the member takes 0"),
    (["decode", "mgbl_hello"], "33", 1, "", E + "mgbl_hello: MIVO_ERROR_UNSUPPORTED at byte 0: wire type 3 is not supported"),
    (["decode", "mgbl_hello"], "08 0", 2, "", E + "input is not hex: line 1, column 4: '0' has an odd number of hex digits"),
    (["decode", "hello"], "", 2, "", E + "no message 'hello' (see 'obfl-wire list')"),
    ([], "", 2, "", E + "a command is required (see 'obfl-wire help')"),
    # read and write errors: the file and the system's reason
    (["decode", "log_syslog", "/tmp"], "", 3, "", E + "/tmp: Is a directory"),
    (["decode", "--binary", "log_syslog", "/proc/self/mem"], "", 3, "", E + "/proc/self/mem: Input/output error"),
    (["encode", "log_syslog", "/nonexistent"], "", 3, "", E + "/nonexistent: No such file or directory"),
    (["proto", FULL], "", 3, "", E + "standard output: No space left on device"),
    (["decode", "log_syslog", CLOSED], "28 07", -13, "", ""),  # as cat ends: SIGPIPE, quietly
    # streams: one message per line, or each after its length
    (["decode", "log_syslog"], "08 01 28 07\n08 01 28 09\n", 0, [{"version": V1, "client_id": 9}],
     E + "warning: 2 lines of hex read as one message (one per line: --lines)\n" +
     W + "version at byte 4: given again (before at byte 0), the later value kept\n" +
     W + "client_id at byte 6: given again (before at byte 2), the later value kept"),
    (["decode", "--lines", "log_syslog"], "08 01 28 07\n\n08 01 28 09\n", 0,
     [{"version": V1, "client_id": 7}, {"version": V1, "client_id": 9}], ""),
    (["decode", "--lines", "log_syslog"], "28 07\n6A 05 61\n28 09\n", 1, [{"client_id": 7}],
     E + "message 2 (line 2, from byte 6): log_syslog: MIVO_ERROR_GARBLED at byte 0 in data: length 5 runs past the end of "
     "the input (1 bytes left)"),
    (["decode", "--lines", "log_syslog"], "28 07\n28 0\n", 2, [{"client_id": 7}],
     E + "message 2 (line 2, from byte 6): input is not hex: column 4: '0' has an odd number of hex digits"),
    (["encode", "--lines", "log_syslog"], '{"client_id": 7}\n{"data": "a"}\n', 0, "28 07\n6A 01 61\n", ""),
    (["encode", "--lines", "log_syslog"], '{"client_id": 7}\n{"data": }\n', 2, "28 07\n",
     E + "message 2 (line 2, from byte 17): not JSON: column 10: syntax error while parsing value - unexpected '}'; "
     "expected '[', '{', or a literal"),
    (["encode", "--delimited", "log_syslog"], '{"client_id": 7}\n{"data": "a"}\n', 0, b"\x02\x28\x07\x03\x6A\x01\x61", ""),
    (["decode", "--delimited", "log_syslog"], b"\x02\x28\x07\x00\x03\x6A\x01\x61", 0,
     [{"client_id": 7}, {}, {"data": "a"}], ""),
    (["decode", "--delimited", "log_syslog"], b"\x02\x28\x07\x05\x6A\x01", 1, [{"client_id": 7}],
     E + "message 2 (from byte 3): length 5 runs past the end of the input (2 bytes left)"),
    (["decode", "--delimited", "log_syslog"], b"\x02\x28\x07\x81", 1, [{"client_id": 7}],
     E + "message 2 (from byte 3): its length runs past the end of the input"),
    # what the decoder tolerates is shown, and refused with --strict
    (["decode", "log_syslog"], "08 01 A0 06 05 28 07", 0, [{"version": V1, "client_id": 7}],
     W + "unknown field 100 (wire type 0) at byte 2 skipped"),
    (["decode", "log_syslog"], "08 01 A2 06 05 01", 0, [{"version": V1}],
     W + "unknown field 100 (wire type 2) at byte 2 skipped\n" +
     W + "field 100 at byte 2 runs 4 bytes past the end of the input (cut off?)"),
    (["decode", "log_syslog"], "6A 03 61 00 62", 0, [{"data": "a"}],
     W + "data at byte 0: string cut at an embedded NUL, 2 of 3 bytes dropped"),
    (["decode", "log_syslog"], "6A 02 FF FE", 0, [{"data": "\ufffd\ufffd"}],
     W + "data at byte 0: string is not valid UTF-8 (shown with U+FFFD)"),
    (["decode", "mgbl_request"], "22 02 38 05", 0, [{"src_eid": {}}],
     E + "warning: mgbl_request: unknown field 7 (wire type 0) at byte 2 in src_eid skipped"),
    (["decode", "--strict", "log_syslog"], "08 01 A0 06 05 28 07", 1, "",
     W + "unknown field 100 (wire type 0) at byte 2 skipped\n" + E + "log_syslog: refused with --strict: 1 warning"),
    # raw: fields by number and wire type, nested where they parse as a message
    (["raw"], "08 96 01 58 FB FF FF FF 0F 60 FF FF FF FF FF FF FF FF FF 01", 0,
     [[raw_field(1, 0, 0, varint="150"), raw_field(11, 0, 3, varint="4294967291", int32=-5),
       raw_field(12, 0, 9, varint=str(2**64 - 1), int32=-1)]], ""),
    (["raw"], "1A 04 32 02 08 03 6A 03 61 62 63 6A 02 FF 00 0D 01 02 03 04", 0,
     [[raw_field(3, 2, 0, message=[raw_field(6, 2, 2, message=[raw_field(1, 0, 4, varint="3")])]),
       raw_field(13, 2, 6, string="abc"), raw_field(13, 2, 11, bytes="ff00"), raw_field(1, 5, 15, fixed32=0x04030201)]], ""),
    (["raw"], "08 01 A2 06 05 01", 1, "", E + "not a message: at byte 2: length 5 runs past the end of the input (1 bytes left)"),
    (["raw"], "08 80", 1, "", E + "not a message: at byte 0: the varint runs past the end of the input"),
    # guess: the human table, or JSON alone on standard output; a tie is marked and warned of
    (["guess"], "98 01 01", 0, re.compile(r"log_diag_record +1 member filled, 0 bytes skipped\n(?!.*tie).*", re.S), ""),
    (["guess"], "40 04 58 01 6A 03 61 62 63", 0,  # named constants outweigh a snugger record
     re.compile(r"log_syslog +3 members filled, 0 bytes skipped\n(?!.*tie).*", re.S), ""),
    (["guess"], "2A 01 61 2A 02 62 63", 0,  # what is skipped or cut off inside tgt_eid counts against a candidate
     re.compile(r"mgbl_notify_locations +1 member filled, 0 bytes skipped\n"
                r"mgbl_hello_done +0 members filled, 7 bytes skipped, 2 warnings\n"
                r"mgbl_request_done +1 member filled, 3 bytes skipped, 2 fields cut off, 5 warnings\n.*", re.S), ""),
    (["guess", "--json", "--pretty"], "98 01 01", 0,
     re.compile(r'\[\n  \{\n    "message": "log_diag_record",\n.*\n    "record": \{\n      "\w+": 1\n    \}\n  \},\n.*', re.S), ""),
    (["guess", "--json"], "30 02 38 00", 0,
     re.compile(r'\[\{"message":"log_bulk_env_sensor_info_done","members_filled":2,"bytes_skipped":0,"fields_cut_off":0,"warnings":0,'
                r'"values_not_fitting":0,"tie":true,"record":\{"sensor_type":"mivo_OBFL_SENSOR_VOLT","ret_errors":\["0"\]\}\},'
                r'\{"message":"mgbl_request_done",[^]]*"tie":true,.*\]\n'),
     E + "warning: 2 messages fit the bytes equally well: log_bulk_env_sensor_info_done, mgbl_request_done"),
    (["guess", "--json"], "12 00", 1, "[]\n", E + "no message accepts these bytes"),
    (["guess"], "", 1, "", E + "no bytes to guess from: the input is empty"),
    (["guess"], "08 01", 0, re.compile(r"mgbl_hello_done +1 member filled, 0 bytes skipped, tie\n.*", re.S),
     E + "warning: 37 messages fit the bytes equally well: mgbl_hello_done, write_env_pep_record_done, "
         "write_env_raw_record_done, write_env_volt_thresholds_done and 33 more"),
    # every tolerance said, with byte offset and member; --strict refuses them
    (["decode", "log_syslog"], "6A 81 80 80 80 10 61", 0, [{"data": "a"}],
     W + "data at byte 0: its length holds 4294967297, more than 32 bits; read as its low 32 bits: 1"),
    (["decode", "--strict", "log_syslog"], "6A 81 80 80 80 10 61", 1, "",
     W + "data at byte 0: its length holds 4294967297, more than 32 bits; read as its low 32 bits: 1\n" +
     E + "log_syslog: refused with --strict: 1 warning"),
    (["decode", "log_syslog"], "A2 06 81 80 80 80 10 61", 0, [{}], W + "unknown field 100 (wire type 2) at byte 0 skipped\n" +
     W + "unknown field 100 (wire type 2) at byte 0: its length holds 4294967297, more than 32 bits; read as its low 32 bits: 1"),
    (["decode", "log_syslog"], "0000 08 01 28 07", 0, [{"version": V1, "client_id": 7}],
     W + "field number 0 (wire type 0) at byte 0 skipped (an offset column pasted with the bytes?)"),
    (["decode", "log_syslog"], "28 80 80 80 80 10", 0, [{"client_id": 0}],
     W + "client_id at byte 0: the varint holds 4294967296, more than 32 bits; the low 32 bits kept: 0"),
    (["decode", "log_syslog"], "28 87 80 80 80 80 80 80 80 80 80 00", 0, [{"client_id": 7}],
     W + "client_id at byte 0: a varint of 11 bytes (more than ten)"),
    (["decode", "log_syslog"], "A8 80 80 80 10 07", 0, [{"client_id": 7}],
     W + "client_id at byte 0: its key holds 4294967336, more than 32 bits; read as its low 32 bits: field 5, wire type 0"),
    (["decode", "log_env_sensor_info"], "58 80 80 80 80 10", 0, [{"value": 0}], E + "warning: log_env_sensor_info: "
     "value at byte 0: the varint holds 4294967296, more than an int32; the low 32 bits kept: 0"),
    (["decode", "log_env_sensor_info"], "58 FB FF FF FF FF FF FF FF FF 01", 0, [{"value": -5}], ""),  # libprotobuf's form
    (["decode", "log_syslog"], "30 05", 0, [{"is_resend_msg": True}], W + "is_resend_msg at byte 0: the varint holds 5, read as true"),
    (["decode", "log_syslog_done"], "20 FF FF FF FF FF FF FF FF FF 7F", 0, [{"err_code": str(2**64 - 1)}], E + "warning: "
     "log_syslog_done: err_code at byte 0: the varint holds more than 64 bits; the low 64 bits kept: 18446744073709551615"),
    # a run's element whose key says another wire type is read as the member's kind: said, with what it became
    (["decode", "--strict", "write_env_temp_thresholds"], "60 01 62 05", 1, "",
     WT + "sensor_id[1] at byte 2: its key says wire type 2, read as a varint element of the run: 5\n" +
     E + "write_env_temp_thresholds: refused with --strict: 1 warning"),
    (["decode", "write_env_temp_thresholds"], "60 01 62 02 02 03 60 04", 0, [{"sensor_id": [1, 2]}],  # libprotobuf: 1 to 4
     WT + "sensor_id[1] at byte 2: its key says wire type 2, read as a varint element of the run: 2\n" + WT + "sensor_id[1] "
     "at byte 2: a packed run of 2 elements (2, 3), as libprotobuf reads it; read here as its length and fields\n" +
     WT + "field number 0 (wire type 2) at byte 4 skipped\n" + WT + "field 0 at byte 4 runs 1 byte past the end of the input (cut off?)"),
    (["decode", "write_env_temp_thresholds"], "6A 01 61 68 01 62", 0, [{"sensor_name": ["a", "b"]}],
     WT + 'sensor_name[1] at byte 3: its key says wire type 0, read as a string element of the run: "b"'),
    (["decode", "write_env_temp_thresholds"], "6A 01 61 68 05", 1, "", E + "write_env_temp_thresholds: MIVO_ERROR_GARBLED at "
     "byte 3 in sensor_name[1]: its key says wire type 0, read as a string element: length 5 runs past the end of the input (0 bytes left)"),
    (["decode", "write_env_temp_thresholds"], "62 02 02 03", 1, "", E + "write_env_temp_thresholds: MIVO_ERROR_WRONG_TYPE at "
     "byte 0 in sensor_id: field 12 has wire type 2, the member takes 0 (packed? elements are read one field each)"),
    (["decode", "--proto-json", "log_syslog"], "1A 08 32 02 08 03 30 02 08 04", 0, [{"tgtEid": {"tsi": [{"type": 3}, {"type": 4}]}}],
     W + "tgt_eid.tsi[1] at byte 6: its key says wire type 0, read as a nested element of the run: 2 bytes"),
    (["decode", "log_syslog"], "1A 01 61", 0, [{"tgt_eid": {}}], W + "unknown field 12 (wire type 1) at byte 2 in tgt_eid skipped\n" +
     W + "field 12 at byte 2 in tgt_eid runs 8 bytes past the end of tgt_eid (cut off?)"),
    (["decode", "--strict", "log_syslog"], "", 1, "",
     E + "warning: the input is empty: the record at its defaults\n" + E + "refused with --strict: no bytes"),
    (["decode", "--binary", "log_syslog"], b"\x02\x28\x07\x02\x28\x09", 0, [{}],
     W + "field number 0 (wire type 2) at byte 0 skipped (an offset column pasted with the bytes?)\n" +
     W + "field 0 at byte 0 runs 36 bytes past the end of the input (cut off?)\n" +
     E + "hint: the bytes read as 2 messages, each after its length (try --delimited)"),
    # raw: what protoc --decode_raw refuses is refused; groups are nested fields
    (["raw"], "0B 10 01 0C", 0, [[raw_field(1, 3, 0, group=[raw_field(2, 0, 1, varint="1")])]], ""),
    (["raw"], "0C", 1, "", E + "not a message: at byte 0: the end of group 1 without its start"),
    (["raw"], "0B 10 01", 1, "", E + "not a message: at byte 0: group 1 has no end"),
    (["raw"], "6A 80 80 80 80 80 80 80 80 80 01", 1, "",
     E + "not a message: at byte 0: length 9223372036854775808 runs past the end of the input (0 bytes left)"),
    (["raw"], "00 01", 1, "", E + "not a message: at byte 0: field number 0 is not valid"),
    (["raw"], "08 80 80 80 80 80 80 80 80 80 80 00", 1, "", E + "not a message: at byte 0: the varint is longer than ten bytes"),
    (["raw"], "08 FF FF FF FF FF FF FF FF FF 02", 1, "", E + "not a message: at byte 0: the varint holds more than 64 bits"),
    (["raw"], "0E", 1, "", E + "not a message: at byte 0: wire type 6 is not valid"),
    (["raw", "--base64-bytes"], "6A 02 FF 00", 0, [[raw_field(13, 2, 0, bytes="/wA=")]], ""),
    (["raw"], NESTED_33, 0, re.compile(r'(\[\{"field":1,"wire_type":2,"offset":\d+,"message":){32}\[\{"field":1,"wire_type":2,'
                                       r'"offset":64,"bytes":"0801"(\}\]){33}\n'),
     E + "warning: nesting stops at depth 32: the field at byte 64 parses as a message and is shown as bytes"),
    (["raw", "--lines"], "08 01\n09 01 02 03 04 05 06 07 08\n", 0,
     [[raw_field(1, 0, 0, varint="1")], [raw_field(1, 1, 0, fixed64=str(0x0807060504030201))]], ""),
    (["raw", "--delimited"], b"\x02\x08\x01\x01\x0c", 1, [[raw_field(1, 0, 0, varint="1")]],
     E + "message 2 (from byte 3): not a message: at byte 0: the end of group 1 without its start"),
    # no crash on any JSON, and a refusal is one short line
    (["encode", "log_syslog"], '{"data":' + '{"a":' * 100000 + "1" + "}" * 100001, 2, "",
     E + "not JSON: line 1, column 324: nested deeper than 64 levels"),
    (["encode", "log_syslog"], "[" * 1000000, 2, "", E + "not JSON: line 1, column 65: nested deeper than 64 levels"),
    (["encode", "log_syslog"], '{"data": [' + "1," * 100000 + "1]}", 2, "",
     E + "log_syslog: data: expected a string, got array [1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,\u2026"),
    (["encode", "log_syslog"], '{"' + "k" * 100000 + '": 1}', 2, "", E + "log_syslog: " + "k" * 37 + "\u2026: no such member"),
    (["encode", "log_syslog"], '{"client_id": ' + "9" * 100000 + "}", 2, "",
     E + "not JSON: number overflow parsing '" + "9" * 37 + "\u2026'"),
    # what engineers paste: dumps with offsets and gutters, C arrays, base64; errors by line and column
    (["decode", "log_syslog"], "00000000: 0801 2807 6a03 6162 63    ..(.j.abc\n", 0,
     [{"version": V1, "client_id": 7, "data": "abc"}], ""),
    (["decode", "log_syslog"], "00000000  6a 12 61 61 61 61 61 61  61 61 61 61 61 61 61 61  |j.aaaaaaaaaaaaaa|\n"
     "00000010  61 61 61 61 28 07                                 |aaaa(.|\n00000016\n", 0,
     [{"client_id": 7, "data": "a" * 18}], ""),
    (["decode", "log_syslog"], "000000 6a 20 61 61 61 61 61 61 61 61 61 61 61 61 61 61\n"
     "000010 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61\n*\n000020 61 61\n000022\n", 0, [{"data": "a" * 32}], ""),
    (["decode", "log_syslog"], "000000 6a 20 61 61\n000010 61\n000011\n", 2, "",
     E + "input is not hex: line 2, column 1: offset 0x10 does not follow the 4 bytes before it (a line left out?)"),
    (["decode", "log_syslog"], "0000000 0108 0728\n0000004\n", 2, "", E + "input is not hex: line 1: a dump of 16-bit "
     "words (od -x, hexdump) holds their bytes swapped; give xxd, hexdump -C or od -A x -t x1"),
    (["decode", "log_syslog"], "unsigned char m[] = {\n  0x08, 0x1, 0x28,\n  0x07 };\n", 0, [{"version": V1, "client_id": 7}], ""),
    (["decode", "--base64", "log_syslog"], "CAEo\nBw==\n", 0, [{"version": V1, "client_id": 7}], ""),
    (["decode", "--lines", "--base64", "log_syslog"], "KAc=\nKAk\n", 0, [{"client_id": 7}, {"client_id": 9}], ""),
    (["decode", "log_syslog"], "0x8, 0x1, 0x28, 0x7, 0x30, 0x1", 0, [{"version": V1, "client_id": 7, "is_resend_msg": True}], ""),
    (["decode", "log_syslog"], '"\\x08\\x01" "\\x28\\x7"', 0, [{"version": V1, "client_id": 7}], ""),  # a C string's escapes
    (["decode", "log_syslog"], "0x08 0x0128", 2, "", E + "input is not hex: line 1, column 6: '0x0128' is more than one byte (one 0x per byte)"),
    (["decode", "log_syslog"], "080 12807", 2, "", E + "input is not hex: line 1, column 1: '080' has an odd number of hex digits"),
    (["encode", "--hex-bytes", "mgbl_request_done"], '{"data": "0x1 0x2"}', 0, "6A 02 01 02\n", ""),
    (["decode", "log_syslog"], "08 01\n28 0g\n", 2, "", E + "input is not hex: line 2, column 5: 'g' is not a hex digit"),
    (["decode", "log_syslog"], "CAEoBw==", 2, "", E + "input is not hex: line 1, column 4: 'o' is not a hex digit (base64? give --base64)"),
    (["decode", "log_syslog"], b"\x08\x01", 2, "", E + "input is not hex: line 1, column 1: byte 0x08 is not hex text (raw bytes: give --binary)"),
    # the questions asked of a capture: summary, diff, annotate, unknown fields kept
    (["summary", "--lines", "log_syslog"], "".join("38 %02X 10 %02X 58 %02X 30 %02X\n" % (q, q + 100, q % 2, q == 8)
                                                   for q in (1, 2, 3, 7, 8, 8, 9, 4, 5, 12)), 0,
     "messages      10, 80 bytes (8 to 8 each)\ntimestamp     10  101 to 112; first 101, last 112\n"
     "is_resend_msg 10  false: 8, true: 2\nseq_num       10  1 to 12; 2 gaps, 9 missing: 4-6, 6-11; 1 repeat (8); "
     "1 step back (4)\nseverity      10  mivo_OBFL_SYSLOG_SEV_CRITICAL: 5, mivo_OBFL_SYSLOG_SEV_EMERGENCY: 5\n", ""),
    (["summary", "--delimited", "--json", "--compact", "log_syslog"], b"\x02\x28\x07\x04\x28\x09\x58\x07", 0,
     {"messages": 2, "bytes": 6, "smallest": 2, "largest": 4, "warnings": 0, "failed": 0, "members": {
      "client_id": {"count": 2, "min": 7, "max": 9, "first": 7, "last": 9}, "severity": {"count": 1, "values": {"7": 1}}}}, ""),
    (["summary", "log_syslog"], "28 07", 2, "", E + "summary: it reads a stream: give --delimited or --lines"),
    (["diff", "log_syslog", "-", ("A", EID_HEX)], EID_HEX.replace("18 01 28 07", "18 02 28 09"), 1,
     "tgt_eid.tsi[0].instance: 2 -> 1\nclient_id: 9 -> 7\n", ""),
    (["diff", "log_syslog", ("A", "28 07 08 01"), "-"], "08 01 28 07", 0, "",
     E + "the records are equal; their bytes differ (field order, encoding or unknown fields)"),
    (["diff", "log_syslog", ("A", "28 07"), "-"], "6A 05 61", 2, "",
     E + "standard input: log_syslog: MIVO_ERROR_GARBLED at byte 0 in data: length 5 runs past the end of the input (1 bytes left)"),
    (["annotate", "log_syslog"], "08 01 1A 04 32 02 08 03 A0 06 05 6A 03 61 62 63", 0,
     re.compile(r"offset +bytes +key +member +value\n"
                r" +0  08 01 +1 varint +version +mivo_OBFL_CUR_VERSION \(1\)\n"
                r" +2  1A 04 +3 len +tgt_eid +4 bytes\n"
                r" +4  32 02 +6 len +tgt_eid.tsi\[0\] +2 bytes\n"
                r" +6  08 03 +1 varint +tgt_eid.tsi\[0\].type +mivo_TESK_ENTITY_TYPE_CHASSIS \(3\)\n"
                r" +8  A0 06 05 +100 varint +\(unknown\) +5\n"
                r" +11  6A 03 61 62 63 +13 len +data +\"abc\"\n"), W + "unknown field 100 (wire type 0) at byte 8 skipped"),
    (["decode", "--keep-unknown", "log_syslog"], "08 01 A0 06 05 1A 05 B8 01 02 32 00 FD 01 01 02 03 04", 0,
     [{"version": V1, "tgt_eid": {"tsi": [{}], "_unknown": [{"field": 23, "wire_type": 0, "bytes": "Ag=="}]},
       "_unknown": [{"field": 100, "wire_type": 0, "bytes": "BQ=="}, {"field": 31, "wire_type": 5, "bytes": "AQIDBA=="}]}],
     W + "unknown field 100 (wire type 0) at byte 2 skipped\n" + W + "unknown field 23 (wire type 0) at byte 7 in tgt_eid skipped\n"
     + W + "unknown field 31 (wire type 5) at byte 12 skipped"),
    (["encode", "log_syslog"], '{"version": 1, "tgt_eid": {"tsi": [{}], "_unknown": [{"field": 23, "wire_type": 0, "bytes": "Ag=="}]},'
     '"_unknown": [{"field": 100, "wire_type": 0, "bytes": "BQ=="}, {"field": 31, "wire_type": 5, "bytes": "AQIDBA=="}]}', 0,
     "08 01 1A 05 32 00 B8 01 02 A0 06 05 FD 01 01 02 03 04\n", ""),
    (["encode", "log_syslog"], '{"_unknown": [{"field": 5, "wire_type": 0, "bytes": "AQ=="}]}', 2, "",
     E + "log_syslog: _unknown[0].field: 5 is the member client_id"),
    (["encode", "log_syslog"], '{"_unknown": [{"field": 50, "wire_type": 2, "bytes": "BWE="}]}', 2, "",
     E + "log_syslog: _unknown[0].bytes: not one whole value of wire type 2"),
    # streams go one message at a time: each line is out before the next message goes in
    (["decode", "--delimited", "log_syslog"], (b"\x02\x28\x07", b"\x02\x28\x09"), 0, [{"client_id": 7}, {"client_id": 9}], ""),
    (["encode", "--lines", "log_syslog"], (b'{"client_id": 7}\n', b'{\n  "client_id": 9\n}\n'), 0, "28 07\n28 09\n", ""),
    (["raw", "--lines"], (b"08 01\n", b"08 02\n"), 0, [[raw_field(1, 0, 0, varint="1")], [raw_field(1, 0, 0, varint="2")]], ""),
    (["decode", "--follow", "--lines", "log_syslog"], "", 2, "", E + "decode: --follow needs a FILE to follow"),
    (["decode", "--follow", "log_syslog", "/dev/null"], "", 2, "", E + "decode: --follow reads a stream: give --lines or --delimited"),
    (["raw", "--keep-going"], "08 01", 2, "", E + "raw: --keep-going reads a stream: give --lines or --delimited"),
    (["decode", "--delimited", "log_syslog"], b"", 0, "", E + "warning: the input holds no messages"),
    # --keep-going: a bad message is said by number and offset, the stream goes on, and the count fails it at the end
    (["decode", "--lines", "--keep-going", "log_syslog"], "28 07\n6A 05 61\n\n28 0\n28 09\n", 1, [{"client_id": 7}, {"client_id": 9}],
     E + "message 2 (line 2, from byte 6): log_syslog: MIVO_ERROR_GARBLED at byte 0 in data: length 5 runs past the end of the "
     "input (1 bytes left)\n" + E + "message 3 (line 4, from byte 16): input is not hex: column 4: '0' has an odd number of hex "
     "digits\n" + E + "2 of 4 messages failed"),
    (["decode", "--delimited", "--keep-going", "--strict", "log_syslog"], b"\x02\x28\x07\x02\x30\x05\x02\x28\x09\x05\x6a", 1,
     [{"client_id": 7}, {"client_id": 9}], E + "warning: message 2 (from byte 3): log_syslog: is_resend_msg at byte 0: the varint "
     "holds 5, read as true\n" + E + "message 2 (from byte 3): log_syslog: refused with --strict: 1 warning\n" +
     E + "message 4 (from byte 9): length 5 runs past the end of the input (1 bytes left)\n" + E + "2 of 4 messages failed"),
    (["encode", "--lines", "--keep-going", "log_syslog"], '{"client_id": 7}\n{"data": }\n{"client_id": -1}\n{"client_id": 9}\n', 1,
     "28 07\n28 09\n", E + "message 2 (line 2, from byte 17): not JSON: column 10: syntax error while parsing value - unexpected "
     "'}'; expected '[', '{', or a literal\n" + E + "message 3 (line 3, from byte 28): log_syslog: client_id: -1 is negative, but "
     "uint32 is unsigned\n" + E + "2 of 4 messages failed"),
    (["raw", "--lines", "--keep-going"], "08 01\n0C\n08 02\n", 1, [[raw_field(1, 0, 0, varint="1")], [raw_field(1, 0, 0, varint="2")]],
     E + "message 2 (line 2, from byte 6): not a message: at byte 0: the end of group 1 without its start\n" + E + "1 of 3 messages failed"),
    (["summary", "--lines", "--keep-going", "log_syslog"], "28 07\n6A 05 61\n28 09\n", 1,
     "messages  2, 4 bytes (2 to 2 each)\nfailed   1 (not decoded, not counted above)\nclient_id 2  7 to 9\n",
     E + "message 2 (line 2, from byte 6): log_syslog: MIVO_ERROR_GARBLED at byte 0 in data: length 5 runs past the end of the "
     "input (1 bytes left)\n" + E + "1 of 3 messages failed"),
    (["encode", "log_syslog"], " \n", 2, "", E + "the input is empty (a message is a JSON object; {} for one without members)"),
    # the small ones: spellings, names, arguments, help
    (["encode", "log_syslog"], '{"client_id": 7, "clientId": 8}', 2, "",
     E + "log_syslog: client_id: given twice, as 'client_id' and as 'clientId'"),
    (["encode", "log_syslog"], '{"severity": "alert"}', 0, "58 02\n", ""),
    (["encode", "log_syslog"], '{"severity": "ALRET"}', 2, "",
     E + "log_syslog: severity: 'ALRET' is no constant of enum mivo_syslog_sev_e; did you mean ALERT?"),
    (["encode", "mgbl_request"], '{"set_type": "LOGGING_DISABLE"}', 2, "", E + "mgbl_request: set_type: 'LOGGING_DISABLE' is "
     "ambiguous in enum mivo_obfl_set_type_e: mivo_OBFL_MGBL_LOGGING_DISABLE, mivo_OBFL_CCC_LOGGING_DISABLE"),
    (["decode", "log_sislog"], "", 2, "", E + "no message 'log_sislog'; did you mean log_syslog? (see 'obfl-wire list')"),
    (["decod", "log_syslog"], "", 2, "", E + "no command 'decod'; did you mean decode? (see 'obfl-wire help')"),
    (["decode", "--bogus", "log_syslog"], "", 2, "",
     E + "decode: the following argument was not expected: --bogus (see 'obfl-wire help decode')"),
    (["decode"], "", 2, "", E + "decode: MESSAGE is required (see 'obfl-wire help decode')"),
    (["decode", "--binary", "--base64", "log_syslog"], "", 2, "",
     E + "decode: --binary and --base64 exclude each other (see 'obfl-wire help decode')"),
    (["decode", "--binary", "--lines", "log_syslog"], "", 2, "", E + "decode: --binary and --lines exclude each other: lines "
     "are text (hex or base64, a message each); for raw bytes in a stream give --delimited"),
    (["encode", "--binary", "--lines", "log_syslog"], "", 2, "", E + "encode: --binary and --lines exclude each other: lines "
     "are text (one line of hex per message); for raw bytes in a stream give --delimited"),
    (["--help"], "", 0, re.compile(r".*\nUsage: obfl-wire \[OPTIONS\] \[SUBCOMMAND\]\n.*", re.S), ""),  # not the path it ran from
    (["help", "diff"], "", 0, re.compile(r"the members that differ .*\nUsage: obfl-wire diff \[OPTIONS\] MESSAGE A B\n.*", re.S), ""),
    (["help", "sumary"], "", 2, "", E + "help: no command 'sumary'; did you mean summary?"),
    (["--help", FULL], "", 3, "", E + "standard output: No space left on device"),
    (["describe", "log_syslog"], "", 0, re.compile(r".*\n 11  severity +ENUM +key 58 +mivo_syslog_sev_e\n.*"
                                                   r"\nmivo_syslog_sev_e\n( +\d+  \w+\n)* +2  mivo_OBFL_SYSLOG_SEV_ALERT\n.*", re.S), ""),
]


def camel(value):
    if isinstance(value, dict):
        return {re.sub(r"_(\w)", lambda m: m.group(1).upper(), k): camel(v) for k, v in value.items()}
    return [camel(v) for v in value] if isinstance(value, list) else value


def worked_rows():
    """Rows of worked_examples.txt: message | record (hex byte strings) | bytes | record decoded, where it differs."""
    for line in open(WORKED):
        if line.strip() and not line.startswith("#"):
            name, record, hexed, after = (c.strip() for c in (line + "|").split("|")[:4])
            yield ["encode", "--hex-bytes", name], record, 0, hexed + "\n", ""
            yield (["decode", "--hex-bytes", "--proto-json", name], hexed, 0, [camel(json.loads(after or record))],
                   "" if hexed else E + "warning: the input is empty: the record at its defaults")


def streamed(argv, chunks):
    """Each chunk goes in only once the line of the one before it came out: a tool that reads all of its
    input before writing fails here rather than hang."""
    p = subprocess.Popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0)
    out = b""
    for chunk in chunks:
        p.stdin.write(chunk)
        assert select.select([p.stdout], [], [], 10)[0], ("no line before the next message", argv, out)
        out += p.stdout.readline()
    p.stdin.close()
    out += p.stdout.read()
    err = p.stderr.read().decode()
    return p.wait(), out, err


def check_rows():
    rows = ROWS + list(worked_rows())
    assert len(rows) > 150
    scratch = tempfile.TemporaryDirectory()
    for args, stdin, status, want, err_want in rows:
        target = subprocess.PIPE
        if args[-1:] == [FULL]:
            target = open("/dev/full", "wb")
        elif args[-1:] == [CLOSED]:
            read_end, target = os.pipe()
            os.close(read_end)
        argv = [TOOL] + [a for a in args if a not in (FULL, CLOSED)]
        for i, a in enumerate(argv):  # ("A", text): a file holding text
            if isinstance(a, tuple):
                argv[i] = os.path.join(scratch.name, a[0])
                open(argv[i], "w").write(a[1])
        if isinstance(stdin, tuple):
            rc, out, err = streamed(argv, stdin)
        else:
            rc, out, err = run(argv, stdin if isinstance(stdin, bytes) else stdin.encode(), target)
        if target != subprocess.PIPE:
            target.close() if hasattr(target, "close") else os.close(target)
        got = [json.loads(l) for l in out.splitlines()] if isinstance(want, list) else out
        got = json.loads(out) if isinstance(want, dict) else got
        want = want.encode() if isinstance(want, str) else want
        matched = want.fullmatch(out.decode()) if isinstance(want, re.Pattern) else got == want
        assert rc == status and matched and err == (err_want + "\n" if err_want else ""), (args, stdin, rc, out, err)


def check_round_trips():
    sys.path.append("/usr/lib/python3/dist-packages")  # python3-protobuf beside another interpreter
    with tempfile.TemporaryDirectory() as tmp:
        with open(os.path.join(tmp, "obfl.proto"), "w") as f:
            f.write(ok("proto"))
        subprocess.run([PROTOC, "--proto_path=" + tmp, "--python_out=" + tmp, "obfl.proto"], check=True)
        sys.path.insert(0, tmp)
        import obfl_pb2
        from google.protobuf import json_format
        from google.protobuf.internal.encoder import _VarintBytes
        names = [line.split()[0] for line in ok("list").splitlines()]
        assert len(names) == 37
        for name in names:
            # A value for every member of its kind (named by describe).
            record = {m: SAMPLE[kind] for _, m, kind, *_ in (l.split() for l in ok("describe", name).splitlines() if " key " in l)}
            hexed = ok("encode", name, stdin=json.dumps(record).encode()).strip()
            back = ok("decode", name, stdin=hexed.encode())
            assert json.loads(back) == record and ok("encode", name, stdin=back.encode()).strip() == hexed, name
            wire = bytes.fromhex(hexed)
            proto = ["--proto_path=" + tmp, "obfl.proto"]
            rc, text, err = run([PROTOC, "--decode=obfl." + name, *proto], wire)
            # Every value shows in its own member: no field left unknown (a bare "11: 99").
            assert rc == 0 and not re.search(rb"^\s*\d+:", text, re.M), (name, err, text)
            again = run([PROTOC, "--encode=obfl." + name, *proto], text)[1]
            assert json.loads(ok("decode", name, stdin=again.hex().encode())) == record, name
            # libprotobuf reads --proto-json against the schema and writes the same bytes (a negative
            # int32 in its ten-byte form, which decodes to the same record).
            msg = json_format.Parse(ok("decode", "--proto-json", name, stdin=hexed.encode()), getattr(obfl_pb2, name)())
            ours = msg.SerializeToString()
            assert ours == wire or ok("decode", name, stdin=ours.hex().encode()) == back, name
            # A delimited stream that libprotobuf writes reads back message by message.
            stream = b"".join(_VarintBytes(len(b)) + b for b in (ours, b"", ours))
            lines = ok("decode", "--delimited", "--binary", name, stdin=stream).splitlines()
            assert [json.loads(l) for l in lines] == [record, {}, record], name


SAMPLE = {"UINT32": 4294967295, "INT32": -2147483648, "UINT64": "18446744073709551615", "BOOL": True, "ENUM": 99,
          "STRING": "caf\u00e9", "BYTES": "AAH/", "REP_UINT32": [0, 4294967295],
          "EID": {"rack_num": 3, "tsi": [{"type": "mivo_TESK_ENTITY_TYPE_CHASSIS", "sub_type": {"subtype_cpu": 7},
                                         "instance": 1}]},
          "REP_INT32": [-1, 2147483647], "REP_UINT64": ["0", "18446744073709551615"], "REP_STRING": ["", "b"],
          "REP_BYTES": ["", "AQI="]}

{"rows": check_rows, "round_trips": check_round_trips}[GROUP]()
print(GROUP, "passed")
