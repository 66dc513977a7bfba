/* SPDX-License-Identifier: MIT */
/* Written by vocabulary/generate.py from vocabulary/ids.csv: edit that one. */
/**
 * @file libvoice_ids.h
 * The vocabulary: one 32-bit identifier for every signal, event, parameter and property.
 *
 *     31   30..28  27..24      23..16   15..8  7..0
 *    +---+-------+-----------+---------+------+----------+
 *    | 0 | class | value type| package | item | sub-item |
 *    +---+-------+-----------+---------+------+----------+
 *
 * class: 0 property, 1 signal, 2 event. Value type: 0 none (the signal or event itself), 1 integer (32 bits,
 * signed), 2 string (ends in a zero byte), 3 hex (32-bit words in host byte order or plain bytes: each says
 * which), 4 boolean (32 bits). Sub-item: the number of a parameter within its signal or event, or of a property
 * within its package. What tells a parameter from its signal or event is the value type, never the sub-item: one
 * parameter has sub-item 0.
 *
 * Names in text form, both ways: libvoice_param_str(), libvoice_str_to_param().
 */
#ifndef LIBVOICE_IDS_H
#define LIBVOICE_IDS_H

#define LIBVOICE_IDS 265 /**< Number of identifiers in this file. */

/* clang-format off */

/* Package g (0x01): Generic, ITU-T H.248.1 Annex E. */
#define LIBVOICE_EVENT_g_cause              0x20010100u /**< Generic error event: the termination reports a release or a
                                                             failure; its parameters say why */
#define LIBVOICE_PARAM_g_cause_generalcause 0x21010101u /**< Broad reason: 1 normal release, 2 unavailable resources, 3
                                                             temporary failure, 4 permanent failure, 5 interworking
                                                             error, 6 unsupported (integer) */
#define LIBVOICE_PARAM_g_cause_failurecause 0x22010102u /**< Cause value that the released equipment or connection gave,
                                                             as its bearer control protocol defines it (a Q.850 cause,
                                                             say) (string) */
#define LIBVOICE_EVENT_g_sc                 0x20010200u /**< A signal has ended, and its end was to be reported */

/* Package root (0x02): Base root, ITU-T H.248.1 Annex E. */
#define LIBVOICE_PARAM_root_maxNumberOfContexts              0x01020001u /**< Largest number of contexts that can exist
                                                                              at a time (integer) */
#define LIBVOICE_PARAM_root_maxTerminationsPerContext        0x01020002u /**< Largest number of terminations in one
                                                                              context (integer) */
#define LIBVOICE_PARAM_root_normalMGExecutionTime            0x01020003u /**< Time in milliseconds within which the
                                                                              controller may expect an answer from the
                                                                              gateway (integer) */
#define LIBVOICE_PARAM_root_normalMGCExecutionTime           0x01020004u /**< Time in milliseconds within which the
                                                                              gateway may expect an answer from the
                                                                              controller (integer) */
#define LIBVOICE_PARAM_root_MGProvisionalResponseTimerValue  0x01020005u /**< Milliseconds after which the gateway
                                                                              announces that a transaction is still
                                                                              pending (integer) */
#define LIBVOICE_PARAM_root_MGCProvisionalResponseTimerValue 0x01020006u /**< Milliseconds after which the controller
                                                                              announces that a transaction is still
                                                                              pending (integer) */
#define LIBVOICE_PARAM_root_MGCOriginatedPendingLimit        0x01020007u /**< Most pending announcements that the
                                                                              controller may send for one transaction
                                                                              (integer) */
#define LIBVOICE_PARAM_root_MGOriginatedPendingLimit         0x01020008u /**< Most pending announcements that the
                                                                              gateway may send for one transaction
                                                                              (integer) */

/* Package tonegen (0x03): Tone generator, ITU-T H.248.1 Annex E. */
#define LIBVOICE_SIGNAL_tonegen_pt    0x10030100u /**< Plays tones from a list */
#define LIBVOICE_PARAM_tonegen_pt_tl  0x13030101u /**< Tones to play: frequency (Hz), level (tenths of dBm0, signed), on
                                                       and off (ms) as one word each, repeated (hex, words) */
#define LIBVOICE_PARAM_tonegen_pt_ind 0x11030102u /**< Pause between two tones of the list, in milliseconds (integer) */
#define LIBVOICE_PARAM_tonegen_pt_btd 0x11030103u /**< Where the tone goes: towards the line, towards the context, or
                                                       both (integer) */

/* Package tonedet (0x04): Tone detection, ITU-T H.248.1 Annex E. */
#define LIBVOICE_EVENT_tonedet_std     0x20040100u /**< A tone of the list has begun */
#define LIBVOICE_PARAM_tonedet_std_tl  0x23040101u /**< Tones to look for (hex, words) */
#define LIBVOICE_PARAM_tonedet_std_tid 0x23040103u /**< Tone that was found (hex, words) */
#define LIBVOICE_EVENT_tonedet_etd     0x20040200u /**< A tone of the list has ended */
#define LIBVOICE_PARAM_tonedet_etd_tl  0x23040201u /**< Tones to look for (hex, words) */
#define LIBVOICE_PARAM_tonedet_etd_dur 0x23040202u /**< How long the tone lasted, in milliseconds (hex, words) */
#define LIBVOICE_PARAM_tonedet_etd_tid 0x23040203u /**< Tone that was found (hex, words) */
#define LIBVOICE_EVENT_tonedet_ltd     0x20040300u /**< A tone of the list has lasted for the given time */
#define LIBVOICE_PARAM_tonedet_ltd_tl  0x23040301u /**< Tones to look for (hex, words) */
#define LIBVOICE_PARAM_tonedet_ltd_dur 0x23040302u /**< Time after which a tone counts as long, in milliseconds (hex,
                                                        words) */
#define LIBVOICE_PARAM_tonedet_ltd_tid 0x23040303u /**< Tone that was found (hex, words) */

/* Package dg (0x05): DTMF generator, ITU-T H.248.1 Annex E. */
#define LIBVOICE_SIGNAL_dg_d0    0x10051000u /**< Sends the DTMF digit 0 */
#define LIBVOICE_PARAM_dg_d0_btd 0x11051001u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d1    0x10051100u /**< Sends the DTMF digit 1 */
#define LIBVOICE_PARAM_dg_d1_btd 0x11051101u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d2    0x10051200u /**< Sends the DTMF digit 2 */
#define LIBVOICE_PARAM_dg_d2_btd 0x11051201u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d3    0x10051300u /**< Sends the DTMF digit 3 */
#define LIBVOICE_PARAM_dg_d3_btd 0x11051301u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d4    0x10051400u /**< Sends the DTMF digit 4 */
#define LIBVOICE_PARAM_dg_d4_btd 0x11051401u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d5    0x10051500u /**< Sends the DTMF digit 5 */
#define LIBVOICE_PARAM_dg_d5_btd 0x11051501u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d6    0x10051600u /**< Sends the DTMF digit 6 */
#define LIBVOICE_PARAM_dg_d6_btd 0x11051601u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d7    0x10051700u /**< Sends the DTMF digit 7 */
#define LIBVOICE_PARAM_dg_d7_btd 0x11051701u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d8    0x10051800u /**< Sends the DTMF digit 8 */
#define LIBVOICE_PARAM_dg_d8_btd 0x11051801u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_d9    0x10051900u /**< Sends the DTMF digit 9 */
#define LIBVOICE_PARAM_dg_d9_btd 0x11051901u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_da    0x10051A00u /**< Sends the DTMF digit A */
#define LIBVOICE_PARAM_dg_da_btd 0x11051A01u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_db    0x10051B00u /**< Sends the DTMF digit B */
#define LIBVOICE_PARAM_dg_db_btd 0x11051B01u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_dc    0x10051C00u /**< Sends the DTMF digit C */
#define LIBVOICE_PARAM_dg_dc_btd 0x11051C01u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_dd    0x10051D00u /**< Sends the DTMF digit D */
#define LIBVOICE_PARAM_dg_dd_btd 0x11051D01u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_ds    0x10052000u /**< Sends the DTMF digit * */
#define LIBVOICE_PARAM_dg_ds_btd 0x11052001u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */
#define LIBVOICE_SIGNAL_dg_do    0x10052100u /**< Sends the DTMF digit # */
#define LIBVOICE_PARAM_dg_do_btd 0x11052101u /**< Where the digit goes: towards the line, towards the context, or both
                                                  (integer) */

/* Package dd (0x06): DTMF detection, ITU-T H.248.1 Annex E. */
#define LIBVOICE_EVENT_dd_ce      0x20060400u /**< The digits dialled have met the digit map, or can no longer meet it
                                                   */
#define LIBVOICE_PARAM_dd_ce_ds   0x22060401u /**< Digits dialled, as a digit string (string) */
#define LIBVOICE_PARAM_dd_ce_meth 0x22060403u /**< How the digit map ended: unambiguous match, partial match, full match
                                                   (string) */
#define LIBVOICE_EVENT_dd_d0      0x20061000u /**< The DTMF digit 0 was dialled */
#define LIBVOICE_EVENT_dd_d1      0x20061100u /**< The DTMF digit 1 was dialled */
#define LIBVOICE_EVENT_dd_d2      0x20061200u /**< The DTMF digit 2 was dialled */
#define LIBVOICE_EVENT_dd_d3      0x20061300u /**< The DTMF digit 3 was dialled */
#define LIBVOICE_EVENT_dd_d4      0x20061400u /**< The DTMF digit 4 was dialled */
#define LIBVOICE_EVENT_dd_d5      0x20061500u /**< The DTMF digit 5 was dialled */
#define LIBVOICE_EVENT_dd_d6      0x20061600u /**< The DTMF digit 6 was dialled */
#define LIBVOICE_EVENT_dd_d7      0x20061700u /**< The DTMF digit 7 was dialled */
#define LIBVOICE_EVENT_dd_d8      0x20061800u /**< The DTMF digit 8 was dialled */
#define LIBVOICE_EVENT_dd_d9      0x20061900u /**< The DTMF digit 9 was dialled */
#define LIBVOICE_EVENT_dd_da      0x20061A00u /**< The DTMF digit A was dialled */
#define LIBVOICE_EVENT_dd_db      0x20061B00u /**< The DTMF digit B was dialled */
#define LIBVOICE_EVENT_dd_dc      0x20061C00u /**< The DTMF digit C was dialled */
#define LIBVOICE_EVENT_dd_dd      0x20061D00u /**< The DTMF digit D was dialled */
#define LIBVOICE_EVENT_dd_ds      0x20062000u /**< The DTMF digit * was dialled */
#define LIBVOICE_EVENT_dd_do      0x20062100u /**< The DTMF digit # was dialled */

/* Package cg (0x07): Call progress tones, ITU-T H.248.1 Annex E. */
#define LIBVOICE_SIGNAL_cg_dt  0x10073000u /**< Dial tone: the exchange is ready for digits */
#define LIBVOICE_SIGNAL_cg_rt  0x10073100u /**< Ringing tone: the called party is being alerted */
#define LIBVOICE_SIGNAL_cg_bt  0x10073200u /**< Busy tone: the called party is engaged */
#define LIBVOICE_SIGNAL_cg_ct  0x10073300u /**< Congestion tone: the network cannot complete the call */
#define LIBVOICE_SIGNAL_cg_sit 0x10073400u /**< Special information tone: an announcement follows, or the number cannot
                                                be reached */
#define LIBVOICE_SIGNAL_cg_wt  0x10073500u /**< Warning tone: somebody records or joins the conversation */
#define LIBVOICE_SIGNAL_cg_prt 0x10073600u /**< Payphone recognition tone: tells an operator that the called or the
                                                calling line is a payphone */
#define LIBVOICE_SIGNAL_cg_cw  0x10073700u /**< Call waiting tone: another call arrives during a conversation */
#define LIBVOICE_SIGNAL_cg_cr  0x10073800u /**< Caller waiting tone: the called party is engaged and has been told of
                                                the call */

/* Package al (0x09): Analogue line supervision, ITU-T H.248.1 Annex E. */
#define LIBVOICE_SIGNAL_al_ri       0x10090200u /**< Rings the telephone */
#define LIBVOICE_PARAM_al_ri_cad    0x13090206u /**< Milliseconds on and off in turn as one word each, repeated (hex,
                                                     words) */
#define LIBVOICE_PARAM_al_ri_freq   0x11090207u /**< Frequency of the ringing current in hertz (integer) */
#define LIBVOICE_EVENT_al_on        0x20090400u /**< The handset was put down */
#define LIBVOICE_PARAM_al_on_strict 0x21090401u /**< What counts: 0 the transition alone, 1 the transition or the state
                                                     already there, 2 the transition alone, and asking fails when the
                                                     line is on hook already (integer) */
#define LIBVOICE_PARAM_al_on_init   0x24090402u /**< True: the telephone was on hook when the event was asked for
                                                     (boolean) */
#define LIBVOICE_EVENT_al_of        0x20090500u /**< The handset was lifted */
#define LIBVOICE_PARAM_al_of_strict 0x21090501u /**< What counts: 0 the transition alone, 1 the transition or the state
                                                     already there, 2 the transition alone, and asking fails when the
                                                     line is off hook already (integer) */
#define LIBVOICE_PARAM_al_of_init   0x24090502u /**< True: the telephone was off hook when the event was asked for
                                                     (boolean) */
#define LIBVOICE_EVENT_al_fl        0x20090600u /**< The hook was pressed briefly */
#define LIBVOICE_PARAM_al_fl_mindur 0x21090604u /**< Shortest break that counts as a flash, in milliseconds (integer) */
#define LIBVOICE_PARAM_al_fl_maxdur 0x21090605u /**< Longest break that counts as a flash, in milliseconds (integer) */

/* Package ct (0x0A): Continuity, ITU-T H.248.1 Annex E. */
#define LIBVOICE_SIGNAL_ct_ct     0x100A0300u /**< Sends the continuity test tone */
#define LIBVOICE_SIGNAL_ct_rsp    0x100A0400u /**< Answers a continuity test from the other end */
#define LIBVOICE_EVENT_ct_cmp     0x200A0500u /**< The continuity test has ended */
#define LIBVOICE_PARAM_ct_cmp_res 0x210A0508u /**< Whether the continuity test succeeded (integer) */

/* Package nt (0x0B): Network, ITU-T H.248.1 Annex E. */
#define LIBVOICE_PARAM_nt_dur        0x010B0001u /**< How long the termination has been in its context, in milliseconds
                                                      (integer) */
#define LIBVOICE_PARAM_nt_os         0x010B0002u /**< Octets sent since the termination joined its context (integer) */
#define LIBVOICE_PARAM_nt_or         0x010B0003u /**< Octets received since the termination joined its context (integer)
                                                      */
#define LIBVOICE_PARAM_nt_jit        0x010B0007u /**< Largest size of the jitter buffer in milliseconds (integer) */
#define LIBVOICE_EVENT_nt_netfail    0x200B0500u /**< The network connection of the termination has failed */
#define LIBVOICE_PARAM_nt_netfail_cs 0x220B0501u /**< What is known of the network failure, as text (string) */
#define LIBVOICE_EVENT_nt_qualert    0x200B0600u /**< The quality of the network connection has fallen below the
                                                      threshold */
#define LIBVOICE_PARAM_nt_qualert_th 0x210B0601u /**< Share of quality loss at which the alert is due, in percent
                                                      (integer) */

/* Package rtp (0x0C): RTP, ITU-T H.248.1 Annex E. */
#define LIBVOICE_PARAM_rtp_ps                0x010C0004u /**< RTP packets sent (integer) */
#define LIBVOICE_PARAM_rtp_pr                0x010C0005u /**< RTP packets received (integer) */
#define LIBVOICE_PARAM_rtp_pl                0x010C0006u /**< RTP packets lost, in percent (integer) */
#define LIBVOICE_PARAM_rtp_jit               0x010C0007u /**< Interarrival jitter of RTP, in RTP timestamp units
                                                              (integer) */
#define LIBVOICE_PARAM_rtp_delay             0x010C0008u /**< Delay of RTP packets, in RTP timestamp units (integer) */
#define LIBVOICE_EVENT_rtp_pltrans           0x200C0100u /**< The payload type of the arriving RTP has changed */
#define LIBVOICE_PARAM_rtp_pltrans_rtppltype 0x230C0101u /**< RTP payload type that now arrives (hex, words) */

/* Package tdmc (0x0D): TDM circuit, ITU-T H.248.1 Annex E. */
#define LIBVOICE_PARAM_tdmc_ec     0x040D0008u /**< True: echo cancellation is on (boolean) */
#define LIBVOICE_PARAM_tdmc_gain   0x010D000Au /**< Gain in decibels; 0xFFFFFFFF means automatic gain control (integer)
                                                    */
#define LIBVOICE_PARAM_tdmc_rxgain 0x010D00FFu /**< Receive gain in decibels; an addition of this system to the standard
                                                    package (integer) */

/* Package ctyp (0x11): Call type discrimination, ITU-T H.248.2. */
#define LIBVOICE_PARAM_ctyp_calltyp   0x01110001u /**< Kind of call found so far: voice, fax, text telephone or modem
                                                       (integer) */
#define LIBVOICE_EVENT_ctyp_dtone     0x20110100u /**< A tone was heard that tells fax, text telephone and modem apart
                                                       */
#define LIBVOICE_PARAM_ctyp_dtone_dtt 0x21110101u /**< Which discriminating tone was heard (integer) */

/* Package fax (0x12): Fax, ITU-T H.248.2. */
#define LIBVOICE_EVENT_fax_faxconnchange             0x20120100u /**< The state of the fax connection has changed */
#define LIBVOICE_PARAM_fax_faxconnchange_faxconnchng 0x21120101u /**< State that the fax connection has entered
                                                                      (integer) */

/* Package ipfax (0x13): Fax over IP, ITU-T H.248.2. */
#define LIBVOICE_PARAM_ipfax_t38capabilities           0x02130003u /**< Capabilities of the T.38 side, as text (string)
                                                                        */
#define LIBVOICE_PARAM_ipfax_t38maxbuffersize          0x01130004u /**< Largest number of octets that the T.38 side can
                                                                        buffer (integer) */
#define LIBVOICE_PARAM_ipfax_t38maxdatagramsize        0x01130005u /**< Largest T.38 datagram accepted, in octets
                                                                        (integer) */
#define LIBVOICE_PARAM_ipfax_t38version                0x01130006u /**< Version of ITU-T T.38 (integer) */
#define LIBVOICE_EVENT_ipfax_faxconnchange             0x20130100u /**< The state of the fax over IP connection has
                                                                        changed */
#define LIBVOICE_PARAM_ipfax_faxconnchange_faxconnchng 0x21130101u /**< State that the fax over IP connection has
                                                                        entered (integer) */

/* Package srvtn (0x25): Basic services tones, ITU-T Q.1950. */
#define LIBVOICE_SIGNAL_srvtn_conf 0x10255000u /**< Confirmation tone: a service request was accepted */
#define LIBVOICE_SIGNAL_srvtn_ht   0x10255100u /**< Held tone: the party is on hold */
#define LIBVOICE_SIGNAL_srvtn_mwt  0x10255200u /**< Message waiting tone: messages wait for the subscriber */

/* Package alert (0x3B): Enhanced alerting, ITU-T H.248.23. */
#define LIBVOICE_SIGNAL_alert_ri        0x103B0100u /**< Rings the telephone with a ringing pattern */
#define LIBVOICE_PARAM_alert_ri_pattern 0x113B0101u /**< Number of the ringing pattern (integer) */
#define LIBVOICE_SIGNAL_alert_rs        0x103B0200u /**< Rings the telephone once, briefly */
#define LIBVOICE_SIGNAL_alert_cw        0x103B0300u /**< Plays a call waiting tone with a pattern */
#define LIBVOICE_PARAM_alert_cw_pattern 0x113B0301u /**< Number of the call waiting pattern (integer) */

/* Package andisp (0x3C): Analogue display signalling, ITU-T H.248.23. */
#define LIBVOICE_SIGNAL_andisp_dwa        0x103C0400u /**< Sends display data to the telephone together with ringing */
#define LIBVOICE_PARAM_andisp_dwa_ddb     0x133C0401u /**< Display data block: the upper-case hexadecimal text of a
                                                           block of ETSI EN 300 659-3 and its terminator (hex, bytes) */
#define LIBVOICE_PARAM_andisp_dwa_pattern 0x113C0402u /**< Number of the ringing pattern that goes with the data
                                                           (integer) */
#define LIBVOICE_PARAM_andisp_dwa_btd     0x113C0403u /**< Where the signal goes: towards the line, towards the context,
                                                           or both (integer) */
#define LIBVOICE_SIGNAL_andisp_data       0x103C0500u /**< Sends display data to the telephone without ringing */
#define LIBVOICE_PARAM_andisp_data_db     0x133C0501u /**< Data block: the upper-case hexadecimal text of a block of
                                                           ETSI EN 300 659-3 and its terminator (hex, bytes) */
#define LIBVOICE_PARAM_andisp_data_tas    0x113C0502u /**< Terminal alerting signal that goes before the data (integer)
                                                           */
#define LIBVOICE_PARAM_andisp_data_btd    0x113C0503u /**< Where the signal goes: towards the line, towards the context,
                                                           or both (integer) */
#define LIBVOICE_SIGNAL_andisp_err        0x103C0600u /**< Tells the line of a failure of analogue display signalling */
#define LIBVOICE_PARAM_andisp_err_btd     0x113C0601u /**< Where the signal goes: towards the line, towards the context,
                                                           or both (integer) */

/* Package xal (0x43): Enhanced analogue lines, ITU-T H.248.26. */
#define LIBVOICE_SIGNAL_xal_las 0x10430100u /**< Line-side answer supervision: tells the terminal that the far end has
                                                 answered */
#define LIBVOICE_SIGNAL_xal_nd  0x10430400u /**< Tells the terminal that the network has ended the call */

/* Package ajb (0x7A): Adaptive jitter buffer, register of H.248 packages. */
#define LIBVOICE_PARAM_ajb_jitmin 0x017A0008u /**< Smallest size of the adaptive jitter buffer in milliseconds (integer)
                                                   */
#define LIBVOICE_PARAM_ajb_jitnom 0x017A0009u /**< Size at which the adaptive jitter buffer starts, in milliseconds
                                                   (integer) */
#define LIBVOICE_PARAM_ajb_enabjb 0x017A000Au /**< Whether the jitter buffer adapts (integer) */
#define LIBVOICE_PARAM_ajb_type   0x017A000Bu /**< Kind of the jitter buffer (integer) */
#define LIBVOICE_PARAM_ajb_jitcur 0x017A000Cu /**< Present size of the jitter buffer in milliseconds (integer) */
#define LIBVOICE_PARAM_ajb_ar     0x017A000Du /**< Rate at which the jitter buffer adapts; its unit is agreed between
                                                   application and plugin (integer) */

/* Package fxo (0xFA): Exchange line, this system. */
#define LIBVOICE_SIGNAL_fxo_of    0x10FA0100u /**< Seizes the exchange line: goes off hook towards the exchange */
#define LIBVOICE_EVENT_fxo_ri     0x20FA0100u /**< The exchange line rings */
#define LIBVOICE_PARAM_fxo_ri_cid 0x23FA0101u /**< Caller that the exchange announced: the upper-case hexadecimal text
                                                   of a block of ETSI EN 300 659-3 and its terminator (hex, bytes) */
#define LIBVOICE_SIGNAL_fxo_on    0x10FA0200u /**< Releases the exchange line: goes on hook towards the exchange */
#define LIBVOICE_EVENT_fxo_rh     0x20FA0200u /**< The far end of the exchange line has hung up */
#define LIBVOICE_SIGNAL_fxo_fl    0x10FA0300u /**< Gives a hook flash to the exchange */

/* Package fxoen (0xFB): Dialling on an exchange line, this system. */
#define LIBVOICE_SIGNAL_fxoen_sd   0x10FB0100u /**< Dials digits on the exchange line */
#define LIBVOICE_PARAM_fxoen_sd_ds 0x12FB0101u /**< Digits to dial, as a digit string (string) */

/* Package callsrv (0xFD): Call services, this system. */
#define LIBVOICE_PARAM_callsrv_eplineid       0x01FD0001u /**< Line of the endpoint (integer) */
#define LIBVOICE_PARAM_callsrv_dst_eplineid   0x01FD0002u /**< Line of the endpoint at the other end (integer) */
#define LIBVOICE_PARAM_callsrv_epline_status  0x01FD0003u /**< Status of the endpoint's line (integer) */
#define LIBVOICE_PARAM_callsrv_dst_epid       0x01FD0004u /**< Number of the endpoint at the other end (integer) */
#define LIBVOICE_EVENT_callsrv_holdcall       0x20FD0100u /**< The user asks to put the call on hold */
#define LIBVOICE_EVENT_callsrv_resumecall     0x20FD0200u /**< The user asks to resume a held call */
#define LIBVOICE_EVENT_callsrv_clearcall      0x20FD0300u /**< The user asks to end a call */
#define LIBVOICE_EVENT_callsrv_selectline     0x20FD0400u /**< The user selects a line */
#define LIBVOICE_EVENT_callsrv_linestatus_ind 0x20FD0500u /**< The status of a line has changed */
#define LIBVOICE_EVENT_callsrv_transfercall   0x20FD0600u /**< The user asks to transfer a call */
#define LIBVOICE_EVENT_callsrv_internalcall   0x20FD0700u /**< The user asks for a call inside the house */
#define LIBVOICE_EVENT_callsrv_conferencecall 0x20FD0800u /**< The user asks to join calls in a conference */
#define LIBVOICE_EVENT_callsrv_reconnectcall  0x20FD0900u /**< The user asks to return to an earlier call */

/* Package zil (0xFE): Vendor package, this system. */
#define LIBVOICE_PARAM_zil_pmsg                              0x01FE0001u /**< Number of a message of the plugin
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_amsg                              0x01FE0002u /**< Number of a message of the voice
                                                                              application (integer) */
#define LIBVOICE_PARAM_zil_ep_id                             0x01FE0003u /**< Number of the endpoint, given at
                                                                              registration (integer) */
#define LIBVOICE_PARAM_zil_ep_type                           0x01FE0004u /**< Kind of the endpoint (integer) */
#define LIBVOICE_PARAM_zil_ep_name                           0x02FE0005u /**< Name of the endpoint (string) */
#define LIBVOICE_PARAM_zil_msg_id                            0x01FE0006u /**< Number that ties an answer to its message
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_ep_supported_codec                0x01FE0007u /**< Codec number that the endpoint supports
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_ep_supported_ptime                0x01FE0008u /**< Packet times that the codec supports, a
                                                                              mask agreed between application and plugin
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_ep_supported_bitrate              0x01FE0009u /**< Largest bitrate of the codec; its unit is
                                                                              agreed between application and plugin
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_country                           0x02FE000Au /**< Country whose tones and line settings
                                                                              apply (string) */
#define LIBVOICE_PARAM_zil_ep_dispname                       0x02FE000Bu /**< Name of the endpoint for people (string)
                                                                              */
#define LIBVOICE_PARAM_zil_ringtone                          0x02FE000Cu /**< Ring tone that the endpoint plays (string)
                                                                              */
#define LIBVOICE_PARAM_zil_dect_pp_type                      0x01FE000Du /**< Kind of the DECT handset
                                                                              (libvoice_dect_pp_type_str) (integer) */
#define LIBVOICE_PARAM_zil_ringtest                          0x04FE000Eu /**< True: the endpoint rings for a test
                                                                              (boolean) */
#define LIBVOICE_PARAM_zil_fxs_power                         0x03FE000Fu /**< Power settings of the FXS line, in the
                                                                              driver's own layout (hex, bytes) */
#define LIBVOICE_SIGNAL_zil_deregister                       0x10FE0100u /**< Tells the endpoint to deregister */
#define LIBVOICE_EVENT_zil_rtp                               0x20FE0100u /**< First packets of an RTP stream */
#define LIBVOICE_PARAM_zil_rtp_1st_tx_pkt                    0x23FE0101u /**< First RTP packet sent (hex, bytes) */
#define LIBVOICE_PARAM_zil_rtp_1st_rx_pkt                    0x23FE0102u /**< First RTP packet received (hex, bytes) */
#define LIBVOICE_SIGNAL_zil_cancel_all_signals               0x10FE0200u /**< Ends all signals that the endpoint plays
                                                                              */
#define LIBVOICE_EVENT_zil_rtcp                              0x20FE0200u /**< RTCP packets of a stream */
#define LIBVOICE_PARAM_zil_rtcp_tx_pkt                       0x23FE0201u /**< RTCP packet sent (hex, bytes) */
#define LIBVOICE_PARAM_zil_rtcp_rx_pkt                       0x23FE0202u /**< RTCP packet received (hex, bytes) */
#define LIBVOICE_EVENT_zil_rtcpxr                            0x20FE0300u /**< RTCP extended reports of a stream (RFC
                                                                              3611) */
#define LIBVOICE_PARAM_zil_rtcpxr_tx_pkt                     0x23FE0301u /**< RTCP extended report sent (hex, bytes) */
#define LIBVOICE_PARAM_zil_rtcpxr_rx_pkt                     0x23FE0302u /**< RTCP extended report received (hex, bytes)
                                                                              */
#define LIBVOICE_EVENT_zil_call_stats                        0x20FE0400u /**< Statistics of a stream */
#define LIBVOICE_PARAM_zil_call_stats_txpkts                 0x21FE0403u /**< RTP packets sent (integer) */
#define LIBVOICE_PARAM_zil_call_stats_txbytes                0x21FE0404u /**< RTP bytes sent (integer) */
#define LIBVOICE_PARAM_zil_call_stats_rxpkts                 0x21FE0405u /**< RTP packets received (integer) */
#define LIBVOICE_PARAM_zil_call_stats_rxbytes                0x21FE0406u /**< RTP bytes received (integer) */
#define LIBVOICE_PARAM_zil_call_stats_lost                   0x21FE0407u /**< RTP packets lost (integer) */
#define LIBVOICE_PARAM_zil_call_stats_discarded              0x21FE0408u /**< RTP packets received and thrown away
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_call_stats_txRtcpPkts             0x21FE0409u /**< RTCP packets sent (integer) */
#define LIBVOICE_PARAM_zil_call_stats_rxRtcpPkts             0x21FE040Au /**< RTCP packets received (integer) */
#define LIBVOICE_PARAM_zil_call_stats_txRtcpXrPkts           0x21FE040Bu /**< RTCP extended reports sent (integer) */
#define LIBVOICE_PARAM_zil_call_stats_rxRtcpXrPkts           0x21FE040Cu /**< RTCP extended reports received (integer)
                                                                              */
#define LIBVOICE_PARAM_zil_call_stats_overRuns               0x21FE040Du /**< Times that the jitter buffer overflowed
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_call_stats_underRuns              0x21FE040Eu /**< Times that the jitter buffer ran empty
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_call_stats_jitter                 0x21FE040Fu /**< Interarrival jitter; its unit is agreed
                                                                              between application and plugin (integer)
                                                                              */
#define LIBVOICE_PARAM_zil_call_stats_peakJitter             0x21FE0410u /**< Largest interarrival jitter; its unit is
                                                                              agreed between application and plugin
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_call_stats_jbMin                  0x21FE0411u /**< Smallest size that the jitter buffer had;
                                                                              its unit is agreed between application and
                                                                              plugin (integer) */
#define LIBVOICE_PARAM_zil_call_stats_jbAvg                  0x21FE0412u /**< Average size of the jitter buffer; its
                                                                              unit is agreed between application and
                                                                              plugin (integer) */
#define LIBVOICE_PARAM_zil_call_stats_jbMax                  0x21FE0413u /**< Largest size that the jitter buffer had;
                                                                              its unit is agreed between application and
                                                                              plugin (integer) */
#define LIBVOICE_PARAM_zil_call_stats_latency                0x21FE0414u /**< Delay of the stream; its unit is agreed
                                                                              between application and plugin (integer)
                                                                              */
#define LIBVOICE_PARAM_zil_call_stats_peakLatency            0x21FE0415u /**< Largest delay of the stream; its unit is
                                                                              agreed between application and plugin
                                                                              (integer) */
#define LIBVOICE_PARAM_zil_call_stats_MOSLQ                  0x21FE0416u /**< Mean opinion score for listening quality;
                                                                              its scale is agreed between application
                                                                              and plugin (integer) */
#define LIBVOICE_PARAM_zil_call_stats_MOSCQ                  0x21FE0417u /**< Mean opinion score for conversational
                                                                              quality; its scale is agreed between
                                                                              application and plugin (integer) */
#define LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInS         0x21FE0418u /**< Time of the last RTP packet sent: its
                                                                              seconds (integer) */
#define LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInUs        0x21FE0419u /**< Time of the last RTP packet sent: its
                                                                              microseconds within the second (integer)
                                                                              */
#define LIBVOICE_PARAM_zil_call_stats_tsLastRxRtpInS         0x21FE041Au /**< Time of the last RTP packet received: its
                                                                              seconds (integer) */
#define LIBVOICE_PARAM_zil_call_stats_tsLastRxRtpInUs        0x21FE041Bu /**< Time of the last RTP packet received: its
                                                                              microseconds within the second (integer)
                                                                              */
#define LIBVOICE_PARAM_zil_call_stats_dscp                   0x21FE041Cu /**< Differentiated services code point of the
                                                                              stream (integer) */
#define LIBVOICE_EVENT_zil_dect_property                     0x20FE0500u /**< A DECT handset reports its properties */
#define LIBVOICE_PARAM_zil_dect_property_sw_version          0x22FE0500u /**< Software version of the DECT handset
                                                                              (string) */
#define LIBVOICE_PARAM_zil_dect_property_hw_version          0x22FE0501u /**< Hardware version of the DECT handset
                                                                              (string) */
#define LIBVOICE_PARAM_zil_dect_property_reachability_status 0x21FE0502u /**< Whether the DECT handset can be reached
                                                                              (integer) */

/* Package sdp (0xFF): Media stream settings, this system. */
#define LIBVOICE_PARAM_sdp_stream_mode           0x01FF0001u /**< Directions in which the stream is open (integer) */
#define LIBVOICE_PARAM_sdp_upstream_codec        0x01FF0002u /**< Codec number towards the network (integer) */
#define LIBVOICE_PARAM_sdp_upstream_ptime        0x01FF0003u /**< Packet time towards the network in milliseconds
                                                                  (integer) */
#define LIBVOICE_PARAM_sdp_upstream_bitrate      0x01FF0004u /**< Bitrate towards the network; its unit is agreed
                                                                  between application and plugin (integer) */
#define LIBVOICE_PARAM_sdp_upstream_payload      0x01FF0005u /**< RTP payload type towards the network (integer) */
#define LIBVOICE_PARAM_sdp_downstream_codec      0x01FF0006u /**< Codec number from the network (integer) */
#define LIBVOICE_PARAM_sdp_downstream_ptime      0x01FF0007u /**< Packet time from the network in milliseconds (integer)
                                                                  */
#define LIBVOICE_PARAM_sdp_downstream_bitrate    0x01FF0008u /**< Bitrate from the network; its unit is agreed between
                                                                  application and plugin (integer) */
#define LIBVOICE_PARAM_sdp_downstream_payload    0x01FF0009u /**< RTP payload type from the network (integer) */
#define LIBVOICE_PARAM_sdp_dr_mode               0x01FF0010u /**< How dialled digits cross the network (integer) */
#define LIBVOICE_PARAM_sdp_dr_upstream_payload   0x01FF0011u /**< RTP payload type of relayed digits towards the network
                                                                  (integer) */
#define LIBVOICE_PARAM_sdp_dr_downstream_payload 0x01FF0012u /**< RTP payload type of relayed digits from the network
                                                                  (integer) */
#define LIBVOICE_PARAM_sdp_ss_enable             0x04FF0030u /**< True: silence suppression is on (boolean) */
#define LIBVOICE_PARAM_sdp_ss_timer              0x01FF0031u /**< Silence after which suppression begins, in
                                                                  milliseconds (integer) */
#define LIBVOICE_PARAM_sdp_ss_pref               0x02FF0032u /**< Preferred silence suppression (string) */
#define LIBVOICE_PARAM_sdp_ss_sid                0x02FF0033u /**< Use of silence insertion descriptors (string) */
#define LIBVOICE_PARAM_sdp_ecan_directionflag    0x01FF0034u /**< Direction in which echo is cancelled (integer) */
#define LIBVOICE_PARAM_sdp_ecan_enable           0x04FF0035u /**< True: echo cancellation is on (boolean) */
#define LIBVOICE_PARAM_sdp_ecan_type             0x02FF0036u /**< Kind of the echo canceller (string) */
#define LIBVOICE_PARAM_sdp_data_mode             0x01FF0040u /**< How data calls (fax, modem) are carried (integer) */
#define LIBVOICE_PARAM_sdp_t38faxversion         0x01FF0060u /**< Version of ITU-T T.38 (T38FaxVersion) (integer) */
#define LIBVOICE_PARAM_sdp_t38maxbitrate         0x01FF0061u /**< Largest fax bitrate in bit/s (T38MaxBitRate) (integer)
                                                                  */
#define LIBVOICE_PARAM_sdp_t38faxfillbitremoval  0x01FF0062u /**< Whether fill bits are removed (T38FaxFillBitRemoval)
                                                                  (integer) */
#define LIBVOICE_PARAM_sdp_t38faxtranscodingmmr  0x01FF0063u /**< Whether pages are transcoded to MMR
                                                                  (T38FaxTranscodingMMR) (integer) */
#define LIBVOICE_PARAM_sdp_t38faxtranscodingjbig 0x01FF0064u /**< Whether pages are transcoded to JBIG
                                                                  (T38FaxTranscodingJBIG) (integer) */
#define LIBVOICE_PARAM_sdp_t38faxratemanagement  0x01FF0065u /**< Who trains the fax modems (T38FaxRateManagement)
                                                                  (integer) */
#define LIBVOICE_PARAM_sdp_t38maxbuffer          0x01FF0066u /**< Largest number of octets that can be buffered
                                                                  (T38FaxMaxBuffer) (integer) */
#define LIBVOICE_PARAM_sdp_t38maxdatagram        0x01FF0067u /**< Largest datagram accepted, in octets
                                                                  (T38FaxMaxDatagram) (integer) */
#define LIBVOICE_PARAM_sdp_t38faxudpec           0x01FF0068u /**< Error correction over UDP (T38FaxUdpEC) (integer) */

/* clang-format on */

#endif
