# Made by docs/completion.py from what kex_conformance --help tells.
complete -c kex_conformance -f
complete -c kex_conformance -l only -x -d 'only these: identifiers, groups, or patterns ("order.*")'
complete -c kex_conformance -l alone -d 'only those that need no second process and no socket'
complete -c kex_conformance -l long -d 'also those that take half a minute'
complete -c kex_conformance -l expect -r -F -d 'checks that cannot hold, a line each: identifier and reason'
complete -c kex_conformance -l timeout -x -d 'end a check after this time, 1 to 3600; 20 without it'
complete -c kex_conformance -l trace -d 'show what LIBRARY writes on standard error'
complete -c kex_conformance -l list -d 'tell the checks, with the sentence that each proves'
complete -c kex_conformance -l help -d 'Print a summary and exit'
complete -c kex_conformance -l version -d 'Print the version and exit'
complete -c kex_conformance -F
