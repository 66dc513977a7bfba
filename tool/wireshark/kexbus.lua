-- SPDX-License-Identifier: MIT
-- Written by vocabulary/generate.py from vocabulary/ids.csv and the parts beside it: edit those.
-- The licence goes with that of Wireshark, GPL-2.0-or-later.
-- Vocabulary 0x807002E7
-- Shows captures of voicectl in Wireshark and tshark: what passes on the bus, and the voice records in it.
--
--     tshark -X lua_script:kexbus.lua -r calls.pcapng
--
-- Nothing else is needed beside it. Filters: kex.function == "create", voice.name == "al_ri", kex.rtt > 0.5.

-- Number, name without its prefix, meaning, and of a hex value whether it holds words or bytes.
local vocabulary = {
    { 0x01020001, "root_maxNumberOfContexts", "most contexts", "" },
    { 0x01020002, "root_maxTerminationsPerContext", "most terminations", "" },
    { 0x01020003, "root_normalMGExecutionTime", "MG execution time", "" },
    { 0x01020004, "root_normalMGCExecutionTime", "MGC execution time", "" },
    { 0x01020005, "root_MGProvisionalResponseTimerValue", "MG provisional timer", "" },
    { 0x01020006, "root_MGCProvisionalResponseTimerValue", "MGC provisional timer", "" },
    { 0x01020007, "root_MGCOriginatedPendingLimit", "MGC pending limit", "" },
    { 0x01020008, "root_MGOriginatedPendingLimit", "MG pending limit", "" },
    { 0x010B0001, "nt_dur", "time in context", "" },
    { 0x010B0002, "nt_os", "octets sent", "" },
    { 0x010B0003, "nt_or", "octets received", "" },
    { 0x010B0007, "nt_jit", "largest jitter buffer", "" },
    { 0x010C0004, "rtp_ps", "packets sent", "" },
    { 0x010C0005, "rtp_pr", "packets received", "" },
    { 0x010C0006, "rtp_pl", "packet loss", "" },
    { 0x010C0007, "rtp_jit", "jitter", "" },
    { 0x010C0008, "rtp_delay", "delay", "" },
    { 0x010D000A, "tdmc_gain", "gain", "" },
    { 0x010D00FF, "tdmc_rxgain", "receive gain", "" },
    { 0x01110001, "ctyp_calltyp", "call type", "" },
    { 0x01130004, "ipfax_t38maxbuffersize", "T.38 buffer", "" },
    { 0x01130005, "ipfax_t38maxdatagramsize", "T.38 datagram", "" },
    { 0x01130006, "ipfax_t38version", "T.38 version", "" },
    { 0x017A0008, "ajb_jitmin", "smallest jitter buffer", "" },
    { 0x017A0009, "ajb_jitnom", "nominal jitter buffer", "" },
    { 0x017A000A, "ajb_enabjb", "adaptive jitter buffer", "" },
    { 0x017A000B, "ajb_type", "jitter buffer type", "" },
    { 0x017A000C, "ajb_jitcur", "current jitter buffer", "" },
    { 0x017A000D, "ajb_ar", "adaptation rate", "" },
    { 0x01FD0001, "callsrv_eplineid", "line", "" },
    { 0x01FD0002, "callsrv_dst_eplineid", "other line", "" },
    { 0x01FD0003, "callsrv_epline_status", "line status", "" },
    { 0x01FD0004, "callsrv_dst_epid", "other endpoint", "" },
    { 0x01FE0001, "zil_pmsg", "plugin message", "" },
    { 0x01FE0002, "zil_amsg", "application message", "" },
    { 0x01FE0003, "zil_ep_id", "endpoint number", "" },
    { 0x01FE0004, "zil_ep_type", "endpoint type", "" },
    { 0x01FE0006, "zil_msg_id", "message number", "" },
    { 0x01FE0007, "zil_ep_supported_codec", "supported codec", "" },
    { 0x01FE0008, "zil_ep_supported_ptime", "supported packet time", "" },
    { 0x01FE0009, "zil_ep_supported_bitrate", "supported bitrate", "" },
    { 0x01FE000D, "zil_dect_pp_type", "DECT handset type", "" },
    { 0x01FF0001, "sdp_stream_mode", "stream mode", "" },
    { 0x01FF0002, "sdp_upstream_codec", "codec sent", "" },
    { 0x01FF0003, "sdp_upstream_ptime", "packet time sent", "" },
    { 0x01FF0004, "sdp_upstream_bitrate", "bitrate sent", "" },
    { 0x01FF0005, "sdp_upstream_payload", "payload type sent", "" },
    { 0x01FF0006, "sdp_downstream_codec", "codec received", "" },
    { 0x01FF0007, "sdp_downstream_ptime", "packet time received", "" },
    { 0x01FF0008, "sdp_downstream_bitrate", "bitrate received", "" },
    { 0x01FF0009, "sdp_downstream_payload", "payload type received", "" },
    { 0x01FF0010, "sdp_dr_mode", "digit relay mode", "" },
    { 0x01FF0011, "sdp_dr_upstream_payload", "digit payload sent", "" },
    { 0x01FF0012, "sdp_dr_downstream_payload", "digit payload received", "" },
    { 0x01FF0031, "sdp_ss_timer", "silence timer", "" },
    { 0x01FF0034, "sdp_ecan_directionflag", "echo direction", "" },
    { 0x01FF0040, "sdp_data_mode", "data mode", "" },
    { 0x01FF0060, "sdp_t38faxversion", "T.38 version", "" },
    { 0x01FF0061, "sdp_t38maxbitrate", "T.38 bitrate", "" },
    { 0x01FF0062, "sdp_t38faxfillbitremoval", "T.38 fill bits", "" },
    { 0x01FF0063, "sdp_t38faxtranscodingmmr", "T.38 MMR", "" },
    { 0x01FF0064, "sdp_t38faxtranscodingjbig", "T.38 JBIG", "" },
    { 0x01FF0065, "sdp_t38faxratemanagement", "T.38 rate management", "" },
    { 0x01FF0066, "sdp_t38maxbuffer", "T.38 buffer", "" },
    { 0x01FF0067, "sdp_t38maxdatagram", "T.38 datagram", "" },
    { 0x01FF0068, "sdp_t38faxudpec", "T.38 error correction", "" },
    { 0x02130003, "ipfax_t38capabilities", "T.38 capabilities", "" },
    { 0x02FE0005, "zil_ep_name", "endpoint name", "" },
    { 0x02FE000A, "zil_country", "country", "" },
    { 0x02FE000B, "zil_ep_dispname", "display name", "" },
    { 0x02FE000C, "zil_ringtone", "ring tone", "" },
    { 0x02FF0032, "sdp_ss_pref", "silence preference", "" },
    { 0x02FF0033, "sdp_ss_sid", "silence descriptor", "" },
    { 0x02FF0036, "sdp_ecan_type", "echo canceller", "" },
    { 0x03FE000F, "zil_fxs_power", "FXS power", "b" },
    { 0x040D0008, "tdmc_ec", "echo cancellation", "" },
    { 0x04FE000E, "zil_ringtest", "ring test", "" },
    { 0x04FF0030, "sdp_ss_enable", "silence suppression", "" },
    { 0x04FF0035, "sdp_ecan_enable", "echo cancellation", "" },
    { 0x10030100, "tonegen_pt", "play tone", "" },
    { 0x10051000, "dg_d0", "DTMF 0", "" },
    { 0x10051100, "dg_d1", "DTMF 1", "" },
    { 0x10051200, "dg_d2", "DTMF 2", "" },
    { 0x10051300, "dg_d3", "DTMF 3", "" },
    { 0x10051400, "dg_d4", "DTMF 4", "" },
    { 0x10051500, "dg_d5", "DTMF 5", "" },
    { 0x10051600, "dg_d6", "DTMF 6", "" },
    { 0x10051700, "dg_d7", "DTMF 7", "" },
    { 0x10051800, "dg_d8", "DTMF 8", "" },
    { 0x10051900, "dg_d9", "DTMF 9", "" },
    { 0x10051A00, "dg_da", "DTMF A", "" },
    { 0x10051B00, "dg_db", "DTMF B", "" },
    { 0x10051C00, "dg_dc", "DTMF C", "" },
    { 0x10051D00, "dg_dd", "DTMF D", "" },
    { 0x10052000, "dg_ds", "DTMF *", "" },
    { 0x10052100, "dg_do", "DTMF #", "" },
    { 0x10073000, "cg_dt", "dial tone", "" },
    { 0x10073100, "cg_rt", "ringing tone", "" },
    { 0x10073200, "cg_bt", "busy tone", "" },
    { 0x10073300, "cg_ct", "congestion tone", "" },
    { 0x10073400, "cg_sit", "special information", "" },
    { 0x10073500, "cg_wt", "warning tone", "" },
    { 0x10073600, "cg_prt", "payphone tone", "" },
    { 0x10073700, "cg_cw", "call waiting tone", "" },
    { 0x10073800, "cg_cr", "caller waiting tone", "" },
    { 0x10090200, "al_ri", "ring", "" },
    { 0x100A0300, "ct_ct", "continuity test", "" },
    { 0x100A0400, "ct_rsp", "continuity response", "" },
    { 0x10255000, "srvtn_conf", "confirmation tone", "" },
    { 0x10255100, "srvtn_ht", "held tone", "" },
    { 0x10255200, "srvtn_mwt", "message waiting tone", "" },
    { 0x103B0100, "alert_ri", "pattern ring", "" },
    { 0x103B0200, "alert_rs", "ring splash", "" },
    { 0x103B0300, "alert_cw", "pattern call waiting", "" },
    { 0x103C0400, "andisp_dwa", "display with ring", "" },
    { 0x103C0500, "andisp_data", "display data", "" },
    { 0x103C0600, "andisp_err", "display error", "" },
    { 0x10430100, "xal_las", "answer supervision", "" },
    { 0x10430400, "xal_nd", "network disconnect", "" },
    { 0x10FA0100, "fxo_of", "seize line", "" },
    { 0x10FA0200, "fxo_on", "release line", "" },
    { 0x10FA0300, "fxo_fl", "flash to exchange", "" },
    { 0x10FB0100, "fxoen_sd", "send digits", "" },
    { 0x10FE0100, "zil_deregister", "deregister", "" },
    { 0x10FE0200, "zil_cancel_all_signals", "cancel signals", "" },
    { 0x11030102, "tonegen_pt_ind", "inter-tone pause", "" },
    { 0x11030103, "tonegen_pt_btd", "tone direction", "" },
    { 0x11051001, "dg_d0_btd", "tone direction", "" },
    { 0x11051101, "dg_d1_btd", "tone direction", "" },
    { 0x11051201, "dg_d2_btd", "tone direction", "" },
    { 0x11051301, "dg_d3_btd", "tone direction", "" },
    { 0x11051401, "dg_d4_btd", "tone direction", "" },
    { 0x11051501, "dg_d5_btd", "tone direction", "" },
    { 0x11051601, "dg_d6_btd", "tone direction", "" },
    { 0x11051701, "dg_d7_btd", "tone direction", "" },
    { 0x11051801, "dg_d8_btd", "tone direction", "" },
    { 0x11051901, "dg_d9_btd", "tone direction", "" },
    { 0x11051A01, "dg_da_btd", "tone direction", "" },
    { 0x11051B01, "dg_db_btd", "tone direction", "" },
    { 0x11051C01, "dg_dc_btd", "tone direction", "" },
    { 0x11051D01, "dg_dd_btd", "tone direction", "" },
    { 0x11052001, "dg_ds_btd", "tone direction", "" },
    { 0x11052101, "dg_do_btd", "tone direction", "" },
    { 0x11090207, "al_ri_freq", "ring frequency", "" },
    { 0x113B0101, "alert_ri_pattern", "ring pattern", "" },
    { 0x113B0301, "alert_cw_pattern", "call waiting pattern", "" },
    { 0x113C0402, "andisp_dwa_pattern", "ring pattern", "" },
    { 0x113C0403, "andisp_dwa_btd", "tone direction", "" },
    { 0x113C0502, "andisp_data_tas", "alerting signal", "" },
    { 0x113C0503, "andisp_data_btd", "tone direction", "" },
    { 0x113C0601, "andisp_err_btd", "tone direction", "" },
    { 0x12FB0101, "fxoen_sd_ds", "digits", "" },
    { 0x13030101, "tonegen_pt_tl", "tone list", "w" },
    { 0x13090206, "al_ri_cad", "ring cadence", "w" },
    { 0x133C0401, "andisp_dwa_ddb", "display block", "b" },
    { 0x133C0501, "andisp_data_db", "data block", "b" },
    { 0x20010100, "g_cause", "generic error", "" },
    { 0x20010200, "g_sc", "signal completion", "" },
    { 0x20040100, "tonedet_std", "start of tone", "" },
    { 0x20040200, "tonedet_etd", "end of tone", "" },
    { 0x20040300, "tonedet_ltd", "long tone", "" },
    { 0x20060400, "dd_ce", "dialling complete", "" },
    { 0x20061000, "dd_d0", "DTMF 0", "" },
    { 0x20061100, "dd_d1", "DTMF 1", "" },
    { 0x20061200, "dd_d2", "DTMF 2", "" },
    { 0x20061300, "dd_d3", "DTMF 3", "" },
    { 0x20061400, "dd_d4", "DTMF 4", "" },
    { 0x20061500, "dd_d5", "DTMF 5", "" },
    { 0x20061600, "dd_d6", "DTMF 6", "" },
    { 0x20061700, "dd_d7", "DTMF 7", "" },
    { 0x20061800, "dd_d8", "DTMF 8", "" },
    { 0x20061900, "dd_d9", "DTMF 9", "" },
    { 0x20061A00, "dd_da", "DTMF A", "" },
    { 0x20061B00, "dd_db", "DTMF B", "" },
    { 0x20061C00, "dd_dc", "DTMF C", "" },
    { 0x20061D00, "dd_dd", "DTMF D", "" },
    { 0x20062000, "dd_ds", "DTMF *", "" },
    { 0x20062100, "dd_do", "DTMF #", "" },
    { 0x20090400, "al_on", "on hook", "" },
    { 0x20090500, "al_of", "off hook", "" },
    { 0x20090600, "al_fl", "hook flash", "" },
    { 0x200A0500, "ct_cmp", "continuity complete", "" },
    { 0x200B0500, "nt_netfail", "network failure", "" },
    { 0x200B0600, "nt_qualert", "quality alert", "" },
    { 0x200C0100, "rtp_pltrans", "payload changed", "" },
    { 0x20110100, "ctyp_dtone", "discriminating tone", "" },
    { 0x20120100, "fax_faxconnchange", "fax state change", "" },
    { 0x20130100, "ipfax_faxconnchange", "fax state change", "" },
    { 0x20FA0100, "fxo_ri", "ring from exchange", "" },
    { 0x20FA0200, "fxo_rh", "remote hang-up", "" },
    { 0x20FD0100, "callsrv_holdcall", "hold call", "" },
    { 0x20FD0200, "callsrv_resumecall", "resume call", "" },
    { 0x20FD0300, "callsrv_clearcall", "clear call", "" },
    { 0x20FD0400, "callsrv_selectline", "select line", "" },
    { 0x20FD0500, "callsrv_linestatus_ind", "line status changed", "" },
    { 0x20FD0600, "callsrv_transfercall", "transfer call", "" },
    { 0x20FD0700, "callsrv_internalcall", "internal call", "" },
    { 0x20FD0800, "callsrv_conferencecall", "conference call", "" },
    { 0x20FD0900, "callsrv_reconnectcall", "reconnect call", "" },
    { 0x20FE0100, "zil_rtp", "RTP packet", "" },
    { 0x20FE0200, "zil_rtcp", "RTCP packet", "" },
    { 0x20FE0300, "zil_rtcpxr", "RTCP XR packet", "" },
    { 0x20FE0400, "zil_call_stats", "call statistics", "" },
    { 0x20FE0500, "zil_dect_property", "DECT properties", "" },
    { 0x21010101, "g_cause_generalcause", "general cause", "" },
    { 0x21090401, "al_on_strict", "strict transition", "" },
    { 0x21090501, "al_of_strict", "strict transition", "" },
    { 0x21090604, "al_fl_mindur", "shortest flash", "" },
    { 0x21090605, "al_fl_maxdur", "longest flash", "" },
    { 0x210A0508, "ct_cmp_res", "continuity result", "" },
    { 0x210B0601, "nt_qualert_th", "quality threshold", "" },
    { 0x21110101, "ctyp_dtone_dtt", "tone type", "" },
    { 0x21120101, "fax_faxconnchange_faxconnchng", "fax state", "" },
    { 0x21130101, "ipfax_faxconnchange_faxconnchng", "fax state", "" },
    { 0x21FE0403, "zil_call_stats_txpkts", "packets sent", "" },
    { 0x21FE0404, "zil_call_stats_txbytes", "bytes sent", "" },
    { 0x21FE0405, "zil_call_stats_rxpkts", "packets received", "" },
    { 0x21FE0406, "zil_call_stats_rxbytes", "bytes received", "" },
    { 0x21FE0407, "zil_call_stats_lost", "packets lost", "" },
    { 0x21FE0408, "zil_call_stats_discarded", "packets discarded", "" },
    { 0x21FE0409, "zil_call_stats_txRtcpPkts", "RTCP packets sent", "" },
    { 0x21FE040A, "zil_call_stats_rxRtcpPkts", "RTCP packets received", "" },
    { 0x21FE040B, "zil_call_stats_txRtcpXrPkts", "XR packets sent", "" },
    { 0x21FE040C, "zil_call_stats_rxRtcpXrPkts", "XR packets received", "" },
    { 0x21FE040D, "zil_call_stats_overRuns", "buffer overruns", "" },
    { 0x21FE040E, "zil_call_stats_underRuns", "buffer underruns", "" },
    { 0x21FE040F, "zil_call_stats_jitter", "jitter", "" },
    { 0x21FE0410, "zil_call_stats_peakJitter", "peak jitter", "" },
    { 0x21FE0411, "zil_call_stats_jbMin", "smallest jitter buffer", "" },
    { 0x21FE0412, "zil_call_stats_jbAvg", "average jitter buffer", "" },
    { 0x21FE0413, "zil_call_stats_jbMax", "largest jitter buffer", "" },
    { 0x21FE0414, "zil_call_stats_latency", "latency", "" },
    { 0x21FE0415, "zil_call_stats_peakLatency", "peak latency", "" },
    { 0x21FE0416, "zil_call_stats_MOSLQ", "listening MOS", "" },
    { 0x21FE0417, "zil_call_stats_MOSCQ", "conversation MOS", "" },
    { 0x21FE0418, "zil_call_stats_tsLastTxRtpInS", "last sent (s)", "" },
    { 0x21FE0419, "zil_call_stats_tsLastTxRtpInUs", "last sent (us)", "" },
    { 0x21FE041A, "zil_call_stats_tsLastRxRtpInS", "last received (s)", "" },
    { 0x21FE041B, "zil_call_stats_tsLastRxRtpInUs", "last received (us)", "" },
    { 0x21FE041C, "zil_call_stats_dscp", "DSCP", "" },
    { 0x21FE0502, "zil_dect_property_reachability_status", "reachability", "" },
    { 0x22010102, "g_cause_failurecause", "failure cause", "" },
    { 0x22060401, "dd_ce_ds", "dialled digits", "" },
    { 0x22060403, "dd_ce_meth", "match method", "" },
    { 0x220B0501, "nt_netfail_cs", "failure cause", "" },
    { 0x22FE0500, "zil_dect_property_sw_version", "software version", "" },
    { 0x22FE0501, "zil_dect_property_hw_version", "hardware version", "" },
    { 0x23040101, "tonedet_std_tl", "tone list", "w" },
    { 0x23040103, "tonedet_std_tid", "tone found", "w" },
    { 0x23040201, "tonedet_etd_tl", "tone list", "w" },
    { 0x23040202, "tonedet_etd_dur", "tone duration", "w" },
    { 0x23040203, "tonedet_etd_tid", "tone found", "w" },
    { 0x23040301, "tonedet_ltd_tl", "tone list", "w" },
    { 0x23040302, "tonedet_ltd_dur", "tone duration", "w" },
    { 0x23040303, "tonedet_ltd_tid", "tone found", "w" },
    { 0x230C0101, "rtp_pltrans_rtppltype", "payload type", "w" },
    { 0x23FA0101, "fxo_ri_cid", "caller identity", "b" },
    { 0x23FE0101, "zil_rtp_1st_tx_pkt", "first RTP sent", "b" },
    { 0x23FE0102, "zil_rtp_1st_rx_pkt", "first RTP received", "b" },
    { 0x23FE0201, "zil_rtcp_tx_pkt", "RTCP sent", "b" },
    { 0x23FE0202, "zil_rtcp_rx_pkt", "RTCP received", "b" },
    { 0x23FE0301, "zil_rtcpxr_tx_pkt", "RTCP XR sent", "b" },
    { 0x23FE0302, "zil_rtcpxr_rx_pkt", "RTCP XR received", "b" },
    { 0x24090402, "al_on_init", "already on hook", "" },
    { 0x24090502, "al_of_init", "already off hook", "" },
}

local MOST_NESTING = 4 -- lists inside lists
local SLOW_SECONDS = 1 -- an answer that took longer is marked
local CAPTURE_HEAD = 32
local MESSAGE_HEAD = 20

local kinds = {
    "connected", "closed", "call", "one-way call", "reply", "refused", "waiting", "lost", "watching",
}
local message_kinds = {
    "hello", "call", "one-way call", "reply", "refused", "waiting", "tap hello", "tap record", "missed",
}
local CLOSED, LOST = 2, 8 -- kinds
local HELLO, CALL, ONE_WAY, REPLY, REFUSED, WAITING, MISSED = 1, 2, 3, 4, 5, 6, 9 -- kinds of messages
local INTEGER, STRING, HEX, BOOLEAN = 1, 2, 3, 4 -- types of values
local data_blocks = { andisp_data_db = true, andisp_dwa_ddb = true, fxo_ri_cid = true }
local block_types = { [0x80] = "call set-up", [0x82] = "message waiting" }
local block_items = {
    [0x01] = "time (MMDDhhmm)", [0x02] = "number", [0x03] = "called", [0x04] = "no number", [0x07] = "name",
    [0x08] = "no name", [0x0B] = "lamp", [0x11] = "call type", [0x13] = "messages",
}
local block_texts = { [0x01] = true, [0x02] = true, [0x03] = true, [0x07] = true }

local rows, names = {}, {}
for _, row in ipairs(vocabulary) do
    rows[row[1]] = { name = row[2], meaning = row[3], content = row[4] }
    names[row[1]] = row[2]
end

local kex = Proto("kexbus", "Kex bus")
local voice = Proto("voice", "Voice record")

local f = {
    kind = ProtoField.uint8("kex.kind", "Kind", base.DEC, kinds),
    capture_version = ProtoField.uint8("kex.capture_version", "Version of the capture"),
    from = ProtoField.string("kex.from", "From"),
    to = ProtoField.string("kex.to", "To"),
    from_process = ProtoField.int32("kex.from.process", "Process that sent it"),
    to_process = ProtoField.int32("kex.to.process", "Process that received it"),
    plugin = ProtoField.string("kex.plugin", "Plugin"),
    connection = ProtoField.uint32("kex.connection", "Connection at the listener"),
    lost = ProtoField.uint32("kex.lost", "Copies lost before"),
    text = ProtoField.string("kex.text", "Text"),
    version = ProtoField.uint8("kex.version", "Version"),
    order = ProtoField.string("kex.order", "Byte order"),
    message = ProtoField.uint8("kex.message", "Message", base.DEC, message_kinds),
    serial = ProtoField.uint32("kex.serial", "Serial"),
    flags = ProtoField.uint32("kex.flags", "Flags", base.HEX),
    size = ProtoField.uint32("kex.size", "Size"),
    descriptors = ProtoField.uint32("kex.descriptors", "Descriptors"),
    path = ProtoField.string("kex.path", "Path"),
    ["function"] = ProtoField.string("kex.function", "Function"),
    argument = ProtoField.string("kex.argument", "Argument"),
    value_text = ProtoField.string("kex.value.text", "Text"),
    value_int = ProtoField.int32("kex.value.int", "Number"),
    value_uint = ProtoField.uint32("kex.value.uint", "Number"),
    value_bool = ProtoField.bool("kex.value.bool", "Truth"),
    value_fd = ProtoField.int32("kex.value.fd", "Descriptor (of its sender)"),
    value_bytes = ProtoField.bytes("kex.value.bytes", "Bytes"),
    error_code = ProtoField.uint32("kex.error.code", "Error"),
    error_description = ProtoField.string("kex.error.description", "Description"),
    error_info = ProtoField.string("kex.error.info", "Info"),
    request_in = ProtoField.framenum("kex.request_in", "Call in", base.NONE, frametype.REQUEST),
    reply_in = ProtoField.framenum("kex.reply_in", "Answer in", base.NONE, frametype.RESPONSE),
    rtt = ProtoField.double("kex.rtt", "Time since the call (s)"),
}
kex.fields = f

local v = {
    endpoint = ProtoField.int32("voice.endpoint", "Endpoint"),
    identifier = ProtoField.uint32("voice.identifier", "Identifier", base.HEX, names),
    signal = ProtoField.uint32("voice.signal", "Signal", base.HEX, names),
    event = ProtoField.uint32("voice.event", "Event", base.HEX, names),
    name = ProtoField.string("voice.name", "Name"),
    meaning = ProtoField.string("voice.meaning", "Meaning"),
    line = ProtoField.uint32("voice.line", "Line"),
    message_id = ProtoField.uint32("voice.message_id", "Number of the message"),
    stops = ProtoField.bool("voice.stops", "Stops"),
    stream = ProtoField.uint32("voice.stream", "Stream"),
    length = ProtoField.uint32("voice.length", "Bytes of parameters"),
    id = ProtoField.uint32("voice.param", "Parameter", base.HEX, names),
    param_length = ProtoField.uint32("voice.param.length", "Bytes"),
    int = ProtoField.int32("voice.param.int", "Number"),
    text = ProtoField.string("voice.param.text", "Text"),
    words = ProtoField.uint32("voice.param.word", "Word"),
    bytes = ProtoField.bytes("voice.param.bytes", "Bytes"),
    bool = ProtoField.bool("voice.param.bool", "Truth"),
    block_type = ProtoField.uint8("voice.block.type", "Data block", base.HEX, block_types),
    block_text = ProtoField.string("voice.block.text", "Text"),
    block_number = ProtoField.uint32("voice.block.value", "Value"),
    checksum = ProtoField.uint8("voice.block.checksum", "Checksum", base.HEX),
    checksum_form = ProtoField.string("voice.block.checksum_form", "Checksum is"),
    codec = ProtoField.uint32("voice.codec", "Codec"),
    payload_type = ProtoField.uint32("voice.codec.payload_type", "Payload type"),
    ptime_mask = ProtoField.uint32("voice.codec.ptime_mask", "Packet times", base.HEX),
    max_bitrate = ProtoField.uint32("voice.codec.max_bitrate", "Bits a second"),
}
voice.fields = v

local e = {
    malformed = ProtoExpert.new("kex.malformed", "Malformed", expert.group.MALFORMED, expert.severity.ERROR),
    error = ProtoExpert.new("kex.answer_error", "Answered by an error", expert.group.RESPONSE_CODE,
        expert.severity.WARN),
    slow = ProtoExpert.new("kex.slow", "Slow answer", expert.group.SEQUENCE, expert.severity.WARN),
    waits = ProtoExpert.new("kex.waits", "Waits for an answer", expert.group.SEQUENCE, expert.severity.NOTE),
    lost = ProtoExpert.new("kex.copies_lost", "Copies lost before this one", expert.group.SEQUENCE,
        expert.severity.WARN),
    refused = ProtoExpert.new("kex.refused", "Refused", expert.group.SECURITY, expert.severity.WARN),
    closed = ProtoExpert.new("kex.closed", "Connection closed", expert.group.SEQUENCE, expert.severity.NOTE),
    newer = ProtoExpert.new("kex.newer", "Of a newer version", expert.group.UNDECODED, expert.severity.WARN),
}
kex.experts = e
local record_fault = ProtoExpert.new("voice.malformed", "Malformed record", expert.group.MALFORMED,
    expert.severity.ERROR)
local bad_block = ProtoExpert.new("voice.block.bad", "Checksum wrong", expert.group.CHECKSUM, expert.severity.WARN)
voice.experts = { record_fault, bad_block }

-- Calls by connection, direction and serial while the file is read for the first time; then what belongs to a frame.
local calls, request_of, reply_of = {}, {}, {}
local plugins, plugin_of = {}, {} -- by connection; what each frame is about

function kex.init()
    calls, request_of, reply_of = {}, {}, {}
    plugins, plugin_of = {}, {}
end

-- ------------------------------------------------------------------------------------------------------ Reading

-- Reads numbers of the order that a message's head names. A range beyond the end is an error, which the dissector
-- below turns into an expert note.
local Reader = {}
Reader.__index = Reader

local function reader_at(tvb, at, little)
    return setmetatable({ tvb = tvb, at = at, little = little }, Reader)
end

function Reader:left()
    return self.tvb:len() - self.at
end

function Reader:take(length)
    if length > self:left() then
        error(string.format("%d bytes announced, %d are left", length, self:left()), 0)
    end
    local range = self.tvb:range(self.at, length)
    self.at = self.at + length
    return range
end

function Reader:number(range, signed)
    if signed then
        return self.little and range:le_int() or range:int()
    end
    return self.little and range:le_uint() or range:uint()
end

function Reader:add(tree, field, length, signed)
    local range = self:take(length)
    local item = self.little and tree:add_le(field, range) or tree:add(field, range)
    return self:number(range, signed), item
end

function Reader:word()
    return self:number(self:take(4))
end

-- The bytes behind a length; no range when there are none.
function Reader:counted()
    local length = self:word()
    if length == 0 then
        return nil, self.tvb:range(self.at - 4, 4)
    end
    local range = self:take(length)
    return range, range
end

-- Controls, the second set of them too, and what changes how others show: direction marks, joiners, separators of lines,
-- byte order marks. They could steer a terminal.
local steering = {
    "%c", "\xC2[\x80-\x9F\xAD]", "\xD8\x9C", "\xE1\xA0\x8E", "\xE2\x80[\x8B-\x8F\xA8-\xAE]", "\xE2\x81[\xA0-\xAF]",
    "\xEF\xBB\xBF", "\xEF\xBF[\xB9-\xBB]", "\xF3\xA0[\x80\x81][\x80-\xBF]",
}

local function written_out(characters)
    return (characters:gsub(".", function(byte)
        return string.format("\\x%02X", byte:byte())
    end))
end

-- Of a first byte the fewest and the most that the second one may be, and how many follow, as UTF-8 has it.
local function followers(first)
    if first >= 0xC2 and first <= 0xDF then
        return 0x80, 0xBF, 1
    elseif first >= 0xE0 and first <= 0xEF then
        return first == 0xE0 and 0xA0 or 0x80, first == 0xED and 0x9F or 0xBF, 2
    elseif first >= 0xF0 and first <= 0xF4 then
        return first == 0xF0 and 0x90 or 0x80, first == 0xF4 and 0x8F or 0xBF, 3
    end
end

-- A byte beyond ASCII and those behind it that only follow others: what is no character is written out.
local function whole_character(bytes)
    local least, most, count = followers(bytes:byte())
    local second = bytes:byte(2)
    if count == nil or #bytes <= count or second < least or second > most then
        return written_out(bytes)
    end
    return bytes:sub(1, count + 1) .. written_out(bytes:sub(count + 2))
end

local function printable(text)
    text = text:gsub("[\x80-\xFF][\x80-\xBF]*", whole_character)
    for _, pattern in ipairs(steering) do
        text = text:gsub(pattern, written_out)
    end
    return text
end

local function text_of(range)
    return range and printable(range:string(ENC_UTF_8)) or ""
end

-- Returns the text and the item that shows it.
function Reader:text(tree, field)
    local range, place = self:counted()
    local text = text_of(range)
    return text, tree and tree:add(field, place, text)
end

-- ---------------------------------------------------------------------------------------------------- Data blocks

local function block_byte(digits, index)
    return tonumber(digits:sub(2 * index + 1, 2 * index + 2), 16)
end

-- The hexadecimal text of a data block of caller display, with the bus's checksum (the sum) or a line's (its two's
-- complement).
local function block_show(tree, range)
    local digits = range:string():gsub("\0.*", "")
    local count = math.floor(#digits / 2)
    if count < 3 or digits:find("%X") or block_byte(digits, 1) + 3 ~= count then
        tree:add_proto_expert_info(record_fault, "No whole data block")
        return ""
    end
    local sum = 0
    for index = 0, count - 2 do
        sum = (sum + block_byte(digits, index)) % 256
    end
    local carried = block_byte(digits, count - 1)
    tree:add(v.block_type, range:range(0, 2), block_byte(digits, 0))
    local shown, at = {}, 2
    while at + 2 <= count - 1 do
        local item, length = block_byte(digits, at), block_byte(digits, at + 1)
        if at + 2 + length > count - 1 then
            tree:add_proto_expert_info(record_fault, "An item runs past the data block")
            break
        end
        local place = range:range(2 * at, 2 * (2 + length))
        local label = block_items[item] or string.format("item 0x%02x", item)
        if block_texts[item] then
            local bytes = {}
            for index = at + 2, at + 1 + length do
                bytes[#bytes + 1] = string.char(block_byte(digits, index))
            end
            local text = printable(table.concat(bytes))
            tree:add(v.block_text, place, text):prepend_text(label .. ": ")
            shown[#shown + 1] = text
        else
            local value = length > 0 and block_byte(digits, at + 2) or 0
            tree:add(v.block_number, place, value):prepend_text(label .. ": ")
        end
        at = at + 2 + length
    end
    local item = tree:add(v.checksum, range:range(2 * (count - 1), 2), carried)
    local form = carried == sum and "sum" or carried == -sum % 256 and "complement" or "wrong"
    tree:add(v.checksum_form, range:range(2 * (count - 1), 2), form)
    item:append_text(string.format(" (%s; sum 0x%02x, complement 0x%02x)", form, sum, -sum % 256))
    if form == "wrong" then
        item:add_proto_expert_info(bad_block, "The checksum is neither the sum nor its two's complement")
    end
    return table.concat(shown, " ")
end

-- -------------------------------------------------------------------------------------------- Parameters, records

local function name_of(id)
    return rows[id] and rows[id].name or string.format("0x%08x", id)
end

-- One value by the type that its identifier gives it. Bytes that do not fit the type are shown as bytes.
local function value_show(reader, tree, id, range)
    local kind = math.floor(id / 0x1000000) % 16
    local row = rows[id] or {}
    if data_blocks[row.name] then
        return block_show(tree, range)
    elseif kind == INTEGER and range:len() >= 4 then
        local word = range:range(0, 4)
        local value = reader:number(word, true)
        tree:add(v.int, word, value)
        return tostring(value)
    elseif kind == BOOLEAN and range:len() >= 4 then
        local value = reader:number(range:range(0, 4)) ~= 0
        tree:add(v.bool, range, value)
        return tostring(value)
    elseif kind == STRING then
        local text = printable((range:string(ENC_UTF_8):gsub("\0.*", "")))
        tree:add(v.text, range, text)
        return '"' .. text .. '"'
    elseif kind == HEX and row.content == "w" and range:len() % 4 == 0 then
        local words = {}
        for at = 0, range:len() - 4, 4 do
            local word = range:range(at, 4)
            words[#words + 1] = tostring(reader:number(word))
            tree:add(v.words, word, reader:number(word))
        end
        return table.concat(words, "/")
    end
    tree:add(v.bytes, range)
    return string.format("%d bytes", range:len())
end

local function parameters_show(reader, tree, summary)
    while reader:left() > 0 do
        local start = reader.at
        local id = reader:word()
        local length = reader:word()
        local padded = length + -length % 4
        if padded > reader:left() then
            error(string.format("%s says %d bytes, %d are left", name_of(id), length, reader:left()), 0)
        end
        local item = tree:add(v.id, reader.tvb:range(start, 4), id)
        item:set_len(8 + padded)
        item:add(v.name, reader.tvb:range(start, 4), name_of(id))
        if rows[id] then
            item:add(v.meaning, reader.tvb:range(start, 4), rows[id].meaning)
        end
        item:add(v.param_length, reader.tvb:range(start + 4, 4), length)
        local shown = name_of(id)
        if length > 0 then
            local value = value_show(reader, item, id, reader.tvb:range(reader.at, length))
            item:append_text(": " .. value)
            shown = shown .. "=" .. value
        end
        summary[#summary + 1] = shown
        reader:take(padded)
    end
end

-- The records by the argument that carries them: bytes of the head, and where the length stands in it.
local records = {
    signal = { head = 28, length = 24, class = 1 },
    event = { head = 20, length = 16, class = 2 },
    param_set_request = { head = 8, length = 4 },
    param_set_params = { head = 8, length = 4 },
    cnx_info = { head = 8, length = 4 },
    stream_info = { head = 16, length = 12 },
}

local function record_head_show(reader, tree, form, tvb, summary)
    local id = reader:number(tvb:range(4, 4))
    tree:add(v.endpoint, tvb:range(0, 4), reader:number(tvb:range(0, 4), true))
    tree:add(v.identifier, tvb:range(4, 4), id)
    tree:add(form.class == 1 and v.signal or v.event, tvb:range(4, 4), id)
    tree:add(v.name, tvb:range(4, 4), name_of(id))
    tree:add(v.line, tvb:range(8, 4), reader:number(tvb:range(8, 4)))
    if rows[id] then
        tree:add(v.meaning, tvb:range(4, 4), rows[id].meaning)
        summary[#summary + 1] = rows[id].meaning
    end
    summary[#summary + 1] = name_of(id)
    if form.class == 1 then
        local stops = reader:number(tvb:range(16, 4)) % 2 ~= 0
        tree:add(v.message_id, tvb:range(12, 4), reader:number(tvb:range(12, 4)))
        tree:add(v.stops, tvb:range(16, 4), stops)
        if stops then
            summary[#summary + 1] = "stops"
        end
    end
end

-- A record of a call or, of a parameter set, of an answer to "get".
local function record_show(reader, tree, argument, range, summary)
    local form = records[argument]
    local tvb = range:tvb()
    local record = tree:add(voice, range, "Voice record: " .. argument)
    local whole, why = pcall(function()
        if tvb:len() < form.head then
            error(string.format("%d bytes, the head alone has %d", tvb:len(), form.head), 0)
        end
        if form.class then
            record_head_show(reader, record, form, tvb, summary)
        elseif argument == "stream_info" then
            record:add(v.stream, tvb:range(0, 4), reader:number(tvb:range(0, 4)))
        end
        local length = reader:number(tvb:range(form.length, 4))
        record:add(v.length, tvb:range(form.length, 4), length)
        local arrived = tvb:len() - form.head
        if math.min(length, arrived) > 0 then
            local buffer = tvb:range(form.head, math.min(length, arrived)):tvb()
            parameters_show(reader_at(buffer, 0, reader.little), record, summary)
        end
        if length > arrived then
            error(string.format("%d bytes of parameters announced, %d arrived", length, arrived), 0)
        end
    end)
    if not whole then
        record:add_proto_expert_info(record_fault, "Malformed record: " .. tostring(why))
        summary[#summary + 1] = "[malformed]"
    end
end

local function codecs_show(reader, tree, range)
    local list = tree:add(voice, range, "Codecs, best first")
    for at = 0, range:len() - 16, 16 do
        local columns = { v.codec, v.payload_type, v.ptime_mask, v.max_bitrate }
        for column, field in ipairs(columns) do
            local word = range:range(at + 4 * (column - 1), 4)
            list:add(field, word, reader:number(word))
        end
    end
end

-- --------------------------------------------------------------------------------------------------------- Values

local value_readers = {}

-- Shows one value, and returns it as text and, of bytes, where they lie.
local function value_read(reader, tree, depth)
    local code = reader:take(1):uint()
    local read = value_readers[code]
    if read == nil then
        error(string.format("a value of type %d", code), 0)
    end
    return read(reader, tree, depth)
end

value_readers[0] = function(reader, tree)
    return '"' .. reader:text(tree, f.value_text) .. '"'
end
for code, form in pairs({ [3] = { 2, true }, [4] = { 4, true }, [7] = { 2 }, [8] = { 4 } }) do
    value_readers[code] = function(reader, tree)
        local range = reader:take(form[1])
        local value = reader:number(range, form[2])
        tree:add(form[2] and f.value_int or f.value_uint, range, value)
        return tostring(value)
    end
end
value_readers[10] = function(reader, tree)
    local range = reader:take(1)
    tree:add(f.value_bool, range, range:uint() ~= 0)
    return tostring(range:uint() ~= 0)
end
value_readers[13] = function(reader, tree, depth)
    if depth >= MOST_NESTING then
        error("lists are nested too deeply", 0)
    end
    local values = {}
    for _ = 1, reader:word() do
        values[#values + 1] = value_read(reader, tree, depth + 1)
    end
    return "[" .. table.concat(values, ", ") .. "]"
end
value_readers[18] = function(reader, tree)
    reader:take(4)
    local range = reader:take(4)
    local number = reader:number(range, true)
    tree:add(f.value_fd, range, number)
    return number < 0 and "-" or "fd " .. number
end
value_readers[19] = function(reader, tree)
    local range, place = reader:counted()
    if range then
        tree:add(f.value_bytes, place)
    end
    return string.format("%d bytes", range and range:len() or 0), range
end
value_readers[255] = function()
    return "none"
end

-- ------------------------------------------------------------------------------------------------------- Messages

-- Returns the function, and the plugin that it is about: who registers says so, others are named by their objects.
local function call_show(reader, tree, summary)
    local path = reader:text(tree, f.path)
    local plugin = path:match("^(.-)%.EndPoint%.") or path:match("^(.-)%.DSPPlugin")
    local name = reader:text(tree, f["function"])
    summary[#summary + 1] = name
    local endpoint = path:match("%.EndPoint%.(.*)$")
    if endpoint then
        summary[#summary + 1] = endpoint
    end
    for _ = 1, reader:take(1):uint() do
        local argument, item = reader:text(tree, f.argument)
        local shown, bytes = value_read(reader, item, 0)
        item:append_text(": " .. shown)
        plugin = argument == "plugin_name" and shown:match('^"(.*)"$') or plugin
        if bytes and records[argument] then
            record_show(reader, item, argument, bytes, summary)
        elseif bytes and argument == "codeclist" then
            codecs_show(reader, item, bytes)
        else
            summary[#summary + 1] = argument .. "=" .. shown
        end
    end
    return name, plugin
end

local function reply_show(reader, tree, name, summary)
    for _ = 1, reader:take(1):uint() do
        local code, item = reader:add(tree, f.error_code, 4)
        local description = reader:text(item, f.error_description)
        local info = reader:text(item, f.error_info)
        local sentence = string.format("%d %s: %s", code, description, info)
        item:add_proto_expert_info(e.error, sentence)
        summary[#summary + 1] = "error " .. sentence
    end
    if reader:take(1):uint() ~= 0 then
        local shown, bytes = value_read(reader, tree, 0)
        summary[#summary + 1] = "= " .. shown
        if bytes and name == "get" then
            record_show(reader, tree, "param_set_params", bytes, summary)
        end
    end
end

-- What joins an answer with its call: the two processes, the connection, the side that called, the serial.
local function key_of(ends, serial, from_listener)
    return table.concat({ ends.listener, ends.connection, from_listener and "out" or "in", serial }, " ")
end

-- The plugin that a peer has registered as; its process may have any name.
local function plugin_show(pinfo, tree, ends, plugin, summary)
    local peer = ends.listener .. " " .. ends.connection
    if not pinfo.visited then
        plugins[peer] = plugin or plugins[peer]
        plugin_of[pinfo.number] = plugins[peer]
    end
    plugin = plugin_of[pinfo.number]
    if plugin then
        tree:add(f.plugin, plugin):set_generated()
        summary[1] = ends.from_listener and ends.from .. " > " .. plugin or plugin .. " > " .. ends.to
    end
end

local function call_remember(pinfo, ends, serial, name)
    calls[key_of(ends, serial, ends.from_listener)] = { frame = pinfo.number, time = pinfo.rel_ts, name = name }
end

local function request_find(pinfo, message, ends, serial)
    if not pinfo.visited then
        -- Whoever waits has called; an answer comes from whom was called.
        local from_listener = ends.from_listener == (message == WAITING)
        local call = calls[key_of(ends, serial, from_listener)]
        request_of[pinfo.number] = call
        if call and message ~= WAITING then
            reply_of[call.frame] = pinfo.number
        end
    end
    return request_of[pinfo.number]
end

local function request_show(pinfo, tree, message, call, summary)
    local elapsed = pinfo.rel_ts - call.time
    tree:add(f.request_in, call.frame):set_generated()
    tree:add(f["function"], call.name):set_generated()
    local item = tree:add(f.rtt, elapsed):set_generated()
    table.insert(summary, 2, call.name)
    summary[#summary + 1] = string.format("after %.2f ms", elapsed * 1000)
    if message == WAITING then
        item:add_proto_expert_info(e.waits, string.format("waits for %s since %.1f s", call.name, elapsed))
    elseif elapsed > SLOW_SECONDS then
        item:add_proto_expert_info(e.slow, string.format("%s took %.1f s", call.name, elapsed))
    end
end

-- Joins the message with others of its call, and shows what kind it is.
local function body_show(reader, pinfo, tree, message, ends, serial, summary)
    local call = nil
    if message == REPLY or message == MISSED or message == WAITING then
        call = request_find(pinfo, message, ends, serial)
    end
    if call then
        request_show(pinfo, tree, message, call, summary)
    end
    local name, plugin
    if message == CALL or message == ONE_WAY then
        name, plugin = call_show(reader, tree, summary)
        if not pinfo.visited then
            call_remember(pinfo, ends, serial, name)
        end
        if reply_of[pinfo.number] then
            tree:add(f.reply_in, reply_of[pinfo.number]):set_generated()
        end
    elseif message == REPLY or message == MISSED then
        reply_show(reader, tree, call and call.name, summary)
    elseif message == REFUSED then
        local why, item = reader:text(tree, f.text)
        item:add_proto_expert_info(e.refused, why)
        summary[#summary + 1] = why
    elseif message == HELLO then
        reader:text(tree, f.text)
    end
    plugin_show(pinfo, tree, ends, plugin, summary)
end

local function message_show(tvb, pinfo, tree, ends, summary)
    if tvb:len() < MESSAGE_HEAD then
        error(string.format("%d bytes, a message's head alone has %d", tvb:len(), MESSAGE_HEAD), 0)
    end
    local order = tvb:range(2, 1):string()
    local reader = reader_at(tvb, 4, order == "l")
    tree:add(f.version, tvb:range(1, 1))
    tree:add(f.order, tvb:range(2, 1), order == "l" and "little" or order == "B" and "big" or "unknown")
    tree:add(f.message, tvb:range(3, 1))
    local serial = reader:add(tree, f.serial, 4)
    reader:add(tree, f.flags, 4)
    local size = reader:add(tree, f.size, 4)
    reader:add(tree, f.descriptors, 4)
    if tvb:range(0, 1):string() ~= "k" or (order ~= "l" and order ~= "B") then
        error("this is no message of the bus", 0)
    end
    if tvb:range(1, 1):uint() ~= 2 then
        tree:add_proto_expert_info(e.newer, "The bus's version is not 2: only the head is shown")
        return
    end
    body_show(reader, pinfo, tree, tvb:range(3, 1):uint(), ends, serial, summary)
    if size ~= tvb:len() or reader:left() > 0 then
        error(string.format("the head says %d bytes, %d came, %d are left", size, tvb:len(), reader:left()), 0)
    end
end

-- ------------------------------------------------------------------------------------------------- Capture records

-- Version 1, numbers big-endian: 'v', version, kind, 0 | head's size (2), text's length (2) | process and connection
-- of sender and receiver (4 each) | copies lost (4) | lengths of the two names (1 each), 0 (2) | names, text; then the
-- message. Later versions may add to the head behind them.
local function ends_show(tvb, tree, summary)
    local from_connection, to_connection = tvb:range(12, 4):uint(), tvb:range(20, 4):uint()
    local from_listener = from_connection == 0
    local from_length, to_length = tvb:range(28, 1):uint(), tvb:range(29, 1):uint()
    local from = from_length > 0 and text_of(tvb:range(CAPTURE_HEAD, from_length)) or "?"
    local to = to_length > 0 and text_of(tvb:range(CAPTURE_HEAD + from_length, to_length)) or "?"
    tree:add(f.from, tvb:range(CAPTURE_HEAD - 4, 4 + from_length), from)
    tree:add(f.to, tvb:range(CAPTURE_HEAD - 4, 4 + from_length + to_length), to)
    tree:add(f.from_process, tvb:range(8, 4))
    tree:add(f.to_process, tvb:range(16, 4))
    tree:add(f.connection, from_listener and tvb:range(20, 4) or tvb:range(12, 4))
    summary[1] = from .. " > " .. to
    return {
        from = from,
        to = to,
        from_listener = from_listener,
        listener = tvb:range(from_listener and 8 or 16, 4):uint(),
        connection = from_listener and to_connection or from_connection,
        names = from_length + to_length,
    }
end

local function event_show(tvb, tree, ends, kind, summary)
    local lost = tvb:range(24, 4):uint()
    if lost > 0 then
        local item = tree:add(f.lost, tvb:range(24, 4))
        item:add_proto_expert_info(e.lost, string.format("%d copies lost before this one", lost))
    end
    summary[#summary + 1] = kinds[kind] or "unknown"
    local length = tvb:range(6, 2):uint()
    if length > 0 then
        local range = tvb:range(CAPTURE_HEAD + ends.names, length)
        local text = text_of(range)
        local item = tree:add(f.text, range, text)
        summary[#summary + 1] = text
        if kind == CLOSED then
            item:add_proto_expert_info(e.closed, text)
        end
    end
end

local function capture_show(tvb, pinfo, tree, summary)
    if tvb:len() < CAPTURE_HEAD or tvb:range(0, 1):string() ~= "v" then
        error("this is no record of a capture", 0)
    end
    local version, kind, head = tvb:range(1, 1):uint(), tvb:range(2, 1):uint(), tvb:range(4, 2):uint()
    if version > 1 then
        tree:add(f.capture_version, tvb:range(1, 1))
        tree:add_proto_expert_info(e.newer, "Captured by a newer voicectl: what it added is not shown")
    end
    tree:add(f.kind, tvb:range(2, 1))
    local ends = ends_show(tvb, tree, summary)
    event_show(tvb, tree, ends, kind, summary)
    if head < CAPTURE_HEAD or head > tvb:len() then
        error(string.format("a head of %d bytes in %d", head, tvb:len()), 0)
    end
    if head < tvb:len() then
        message_show(tvb:range(head):tvb(), pinfo, tree, ends, summary)
    elseif kind ~= LOST then
        tree:append_text(", an event of the bus")
    end
end

function kex.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "KEX"
    local tree = root:add(kex, tvb())
    local summary = {}
    local whole, why = pcall(capture_show, tvb, pinfo, tree, summary)
    if not whole then
        local place = "^.*:%d+: " -- in this file, of what Wireshark itself finds
        tree:add_proto_expert_info(e.malformed, "Malformed: " .. tostring(why):gsub(place, ""))
        summary[#summary + 1] = "[malformed]"
    end
    pinfo.cols.info = table.concat(summary, "  ")
    return tvb:len()
end
