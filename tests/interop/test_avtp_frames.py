"""tshark decodes every field of the frames that ts2av sends, and ffmpeg decodes the video they carry."""

import pytest

import tsfile
from lanes import LANE_1, SAMPLES
from tools import decode, video_hashes

SAMPLE_NAMES = ["h264-cbr", "h264-vbr", "h265-cbr", "h265-vbr"]

# Each field with the value that every frame must have. Where the value depends on the run's options, a function.
FIELDS = {
    "eth.src": "02:51:42:58:00:01",
    "ieee1722.subtype": "0x0",
    "ieee1722.svfield": "1",
    "ieee1722.verfield": "0x0",
    "iec61883.mrfield": "0",
    "iec61883.gvfield": "0",
    "iec61883.tvfield": "0",
    "iec61883.tufield": "0",
    "iec61883.avtp_timestamp": "0x0",
    "iec61883.gateway_info": "0x0",
    "iec61883.tag": "0x1",
    "iec61883.channel": "31",
    "iec61883.tcode": "0xa",
    "iec61883.sy": "0x0",
    "iec61883.qi1": "0x0",
    "iec61883.sid": "63",
    "iec61883.dbs": "0x6",
    "iec61883.fn": "0x3",
    "iec61883.qpc": "0x0",
    "iec61883.sph": "1",
    "iec61883.qi2": "0x2",
    "iec61883.fmt": "0x20",
    "iec61883.fdf_no_syt": "0x0",
    "iec61883.fdf_tsf": "0",
}
COUNTING_FIELDS = ["iec61883.seqnum", "iec61883.dbc", "iec61883.stream_data_len", "iec61883.videodata",
                   "frame.len"]
EXPERT_FIELDS = ["iec61883.incorrect_tag", "iec61883.incorrect_tcode", "iec61883.incorrect_qi1",
                 "iec61883.incorrect_qpc", "iec61883.incorrect_qi2", "iec61883.unknown_format",
                 "iec61883.incorrect_channel_sid", "iec61883.incorrect_datalen",
                 "iec61883.4_incorrect_cip_fn", "iec61883.4_incorrect_cip_dbs",
                 "iec61883.4_incorrect_cip_sph"]


def send(segment, sample, captured, *options):
    with segment.receiver(captured) as receiver:
        result = segment.run("ts2av", sample, "-n", LANE_1, *options)
    assert result.returncode == 0, result.stderr
    assert receiver.summary.endswith(", 0 missing")


@pytest.mark.parametrize("name", SAMPLE_NAMES)
@pytest.mark.parametrize("options, expected", [
    ([], {"eth.dst": "ff:ff:ff:ff:ff:ff", "eth.type": "0x22f0", "vlan.id": "",
          "iec61883.stream_id": "0x251425800010000"}),
    (["-m", "91e0f0000e80", "-u", "0x1234", "-vtci", "0x7002"],
     {"eth.dst": "91:e0:f0:00:0e:80", "eth.type": "0x8100", "vlan.priority": "3", "vlan.dei": "1",
      "vlan.id": "2", "vlan.etype": "0x22f0", "iec61883.stream_id": "0x251425800011234"}),
], ids=["untagged", "tagged"])
def test_tshark_decodes_every_field(segment, tmp_path, name, options, expected):
    sample = SAMPLES / f"{name}.ts"
    captured = tmp_path / "frames.pcap"
    send(segment, sample, captured, *options)

    constant = {**FIELDS, **expected}
    frames = decode(captured, [*constant, *COUNTING_FIELDS, *EXPERT_FIELDS])
    source_packets = []
    for number, frame in enumerate(frames):
        assert {field: frame[field] for field in constant} == constant
        assert not any(frame[field] for field in EXPERT_FIELDS)
        video = bytes.fromhex(frame["iec61883.videodata"].replace(":", ""))
        assert int(frame["iec61883.seqnum"], 0) == number % 256
        assert int(frame["iec61883.dbc"], 0) == 8 * len(source_packets) % 256
        assert int(frame["iec61883.stream_data_len"]) == 8 + len(video)
        assert int(frame["frame.len"]) == (18 if "-vtci" in options else 14) + 24 + 8 + len(video)
        assert len(video) % 192 == 0
        source_packets += [video[i:i + 192] for i in range(0, len(video), 192)]

    assert [packet[4:] for packet in source_packets] == tsfile.delivered_part(sample.read_bytes())
    # The source packet headers are the low 32 bits of times that only increase, here by far less than 2^31 ns.
    times = [int.from_bytes(packet[:4], "big") for packet in source_packets]
    assert all((later - earlier) % 2**32 < 2**31 for earlier, later in zip(times, times[1:]))


@pytest.mark.parametrize("name", SAMPLE_NAMES)
def test_ffmpeg_decodes_the_video_that_arrived(segment, tmp_path, name):
    sample = SAMPLES / f"{name}.ts"
    captured = tmp_path / "frames.pcap"
    send(segment, sample, captured)
    video = [bytes.fromhex(frame["iec61883.videodata"].replace(":", ""))
             for frame in decode(captured, ["iec61883.videodata"])]
    received = tmp_path / "received.ts"
    received.write_bytes(b"".join(chunk[i + 4:i + 192] for chunk in video for i in range(0, len(chunk), 192)))

    cut = tmp_path / "cut.ts"
    cut.write_bytes(b"".join(tsfile.delivered_part(sample.read_bytes())))
    hashes = video_hashes(received)
    assert hashes == video_hashes(cut)
    # Compared with the whole file: the last packets are not sent. They belong to the last pictures in decoding
    # order, which are among the last ones shown.
    original = video_hashes(sample)
    complete = len(original) - 4
    assert len(hashes) > complete
    assert hashes[:complete] == original[:complete]
