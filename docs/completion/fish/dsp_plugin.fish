# Made by docs/completion.py from what dsp_plugin --help tells.
complete -c dsp_plugin -f
complete -c dsp_plugin -l name -x -d 'plugin name, at most 19 characters (dsp1)'
complete -c dsp_plugin -l media-file -r -F -d 'write the RTP packets of all lines there, as pcapng'
complete -c dsp_plugin -l control -r -F -d 'also take commands on a local socket; the end of input then ends nothing'
complete -c dsp_plugin -l no-stdin -d 'take no commands on standard input'
complete -c dsp_plugin -l socket -r -F -d 'the bus socket (else $ZIL_VOIP_IPC_SOCKET and $ZIL_VOIP_IPC_SOCKET_URI)'
complete -c dsp_plugin -l convert-media -d 'addresses travel instead of descriptors; both sides must agree'
complete -c dsp_plugin -l help -d 'Print a summary and exit'
complete -c dsp_plugin -l version -d 'Print the version and exit'
