# SPDX-License-Identifier: MIT
"""The dictionary of the fuzz targets: words that stand in what they read."""

from seed_bytes import IDS, byte, half, word


def quoted(value):
    plain = all(32 <= one < 127 and one not in b'"\\' for one in value)
    return '"' + (value.decode() if plain else "".join(f"\\x{one:02x}" for one in value)) + '"'


WORDS = {
    "names": "fxs1 fxs2 dect1 dsp1 FXS1 FXS2 DECT1 fxs1.FXS1 fxs1.EndPoint.FXS1 VoiceService.VoiceApplication",
    "functions": "register_plugin register_endpoint event init exit signal create modify destroy get set list kex",
    "arguments": "plugin_name endpoint_name endpoint_path type codeclist country reason channel_id cnx_info filedesc "
    "ep_line_id param_set_request param_set_params ctx_id stream_id stream_info ep_id line_id name",
    "commands": "status calls stats hangup mwi codec set get flash deregister dsp destroy watch memory help quit",
    "commands of plugins": "fxs dect fxo dsp off on dial flash away back ring stop",
    "steps": "!register !signal !set !get !context !exit LIBVOICE_SIGNAL_al_ri LIBVOICE_SIGNAL_cg_dt "
    "LIBVOICE_SIGNAL_zil_cancel_all_signals LIBVOICE_SIGNAL_andisp_data LIBVOICE_SIGNAL_fxo_of "
    "!plugin !line !event !time !close LIBVOICE_EVENT_al_of LIBVOICE_EVENT_al_on LIBVOICE_EVENT_al_fl "
    "LIBVOICE_EVENT_dd_d1 LIBVOICE_EVENT_dd_d0",
    "settings": "number exchange incoming codecs address ports PCMA PCMU G722 127.0.0.1 30000-30199",
    "options of hosts": "--name --stem --lines --codecs --tone --display-wav --display-modem bell202 "
    "--control --no-stdin --convert-media --config --help --version application",
    "options": "watch --endpoint --plugin --function --package --direction in out both --json --long --count --for "
    "--reconnect --socket zil al cg ids params block --as signal event set buffer --order little big --write --number "
    "--no-number --name --no-name --called --call-type --time now --messages --lamp on off withheld unavailable",
    "lines of records": "al_ri_cad al_ri_freq dd_ce_ds = [1000,4000] true false { } endpoint message flags pointer #",
    "captures": "kexbus rtp rtcp voice_application 1.fxs1 </script> &lt; ]]> %DATA%",
    "data-blocks": "8008020331303104014F73 82060B01FF130103AA",
}


def dictionary():
    lines = ["# Written by tests/fuzz/seeds.py."]
    for title, words in WORDS.items():
        lines += [f"# {title}"] + [quoted(one.encode()) for one in words.split()]
    blocks = [word(0x0A0D0D0A) + word(28) + word(0x1A2B3C4D), word(1) + word(20) + half(252), word(6), word(252)]
    lines += ["# blocks of captures"] + [quoted(one) for one in blocks + [one[::-1] for one in blocks[2:]]]
    lines += ["# identifiers"] + [quoted(word(number)) for number in IDS.values()]
    lines += ["# heads of packets"] + [quoted(b"k\x02l" + byte(kind)) for kind in range(1, 10)]
    return "\n".join(lines) + "\n"
