# Made by docs/completion.py from what fxo_plugin --help tells.
complete -c fxo_plugin -f
complete -c fxo_plugin -l name -x -d 'plugin name, at most 19 characters (fxo1)'
complete -c fxo_plugin -l stem -x -d 'endpoints are STEM1, STEM2, ..., at most 15 characters each (FXO)'
complete -c fxo_plugin -l lines -x -d 'lines, 1 to 8 (1)'
complete -c fxo_plugin -l media-file -r -F -d 'write the RTP packets of all lines there, as pcapng'
complete -c fxo_plugin -l control -r -F -d 'also take commands on a local socket; the end of input then ends nothing'
complete -c fxo_plugin -l no-stdin -d 'take no commands on standard input'
complete -c fxo_plugin -l socket -r -F -d 'the bus socket (else $ZIL_VOIP_IPC_SOCKET and $ZIL_VOIP_IPC_SOCKET_URI)'
complete -c fxo_plugin -l convert-media -d 'addresses travel instead of descriptors; both sides must agree'
complete -c fxo_plugin -l help -d 'Print a summary and exit'
complete -c fxo_plugin -l version -d 'Print the version and exit'
