# Made by docs/completion.py from what voice_application --help tells.
complete -c voice_application -f
complete -c voice_application -l config -r -F -d 'country, numbers, codecs, ports (see voice_application.conf)'
complete -c voice_application -l control -r -F -d 'also take commands on a local socket; the end of input then ends nothing'
complete -c voice_application -l no-stdin -d 'take no commands on standard input'
complete -c voice_application -l socket -r -F -d 'the bus socket (else $ZIL_VOIP_IPC_SOCKET and $ZIL_VOIP_IPC_SOCKET_URI)'
complete -c voice_application -l convert-media -d 'addresses travel instead of descriptors; both sides must agree'
complete -c voice_application -l help -d 'Print a summary and exit'
complete -c voice_application -l version -d 'Print the version and exit'
