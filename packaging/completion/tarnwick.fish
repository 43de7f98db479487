# fish completion for tarnwick: "-x:value" is one word, which fish has no form for

function __tarnwick_words
    set -l token (commandline -ct)
    set -l prefix (string match -r '^[^:=]*[:=]' -- $token)
    set -l value (string replace -r '^[^:=]*[:=]' '' -- $token)
    switch $token
        case '-f:*' '-w:*' '-y:*' '--run-dir=*'
            printf "$prefix%s\n" (__fish_complete_directories "$value" | string replace -r '\t.*' '')
        case '-g:*' '-j:*' '-o:*' '--metrics=*' '--sign=*'
            printf "$prefix%s\n" $value*
        case '-m:*'
            printf '-m:%s\n' 0\t'one scan' 1\tcycle 2\tdaemon 3\t'stop the running copy' 4\t'send the trash journal'
        case '-v:*'
            printf '-v:%s\n' 0\tnone 1\tnormal 2\tdetailed
        case '-k:*' '-l:*' '-z:*'
            printf "$prefix%s\n" 0 1
        case '-a:*'
            printf '-a:%s\n' cp1251 UTF-8 KOI8-R ISO-8859-1
        case '*'
            printf '%s\n' \
                '-a:'\t'local character set of names' \
                '-b:'\t'leave files whose name begins with this' \
                '-c:'\t'length of a scan cycle, seconds' \
                '-d:'\t'passes over a file' \
                '-e:'\t'leave files with this extension' \
                '-f:'\t'folder to scan' \
                '-g:'\t'name of the log file' \
                -h\t'usage text, status 1' \
                '-i:'\t'receiver, an IPv4 address' \
                '-j:'\t'scan list' \
                '-k:'\t'move sent files to the trash' \
                '-l:'\t'keep a log' \
                '-m:'\tmode \
                '-o:'\t'configuration file' \
                '-p:'\t'UDP port' \
                '-q:'\t'a service packet after so many datagrams' \
                '-r:'\t'pause between passes of a cycle' \
                '-s:'\t'line speed, Mbit/s' \
                '-t:'\t'largest UDP payload, bytes' \
                '-u:'\t'header packets in each pass' \
                '-v:'\t'console text' \
                '-w:'\t'accepted, not used' \
                '-x:'\t'leave files modified not longer ago, seconds' \
                '-y:'\t'trash folder' \
                '-z:'\t'leave empty files' \
                --help\t'usage text, status 0' \
                --metrics=\t'a Prometheus text file, kept up to date' \
                --repair=\t'a seal with repair parts, percent' \
                --run-dir=\t'folder of the lock file' \
                --seal\t'a seal after every file' \
                --send-buffer=\t'ask for this send buffer' \
                --sign=\t'a seal with a signature' \
                --version\t'print the version'
    end
end

complete -c tarnwick -f -k -a '(__tarnwick_words)'
