#!/usr/bin/env perl
# Lists small faults that can be put into C++ sources, one a line:
#   scripts/mutations.pl FILE...  ->  KIND <tab> FILE <tab> LINE <tab> THE LINE WITH THE FAULT
# A guard or a statement left out comes first, then conditions, operators, constants.
# It knows lines, not C++: what does not compile is for the caller to drop.
use strict;
use warnings;

my %swapped = (
  '==' => '!=', '!=' => '==', '<' => '<=', '<=' => '<', '>' => '>=', '>=' => '>',
  '&&' => '||', '||' => '&&', '+' => '-', '-' => '+', '+=' => '-=', '-=' => '+=', '|' => '&',
  '&' => '|');
my @order = qw(guard statement condition operator constant);
my %found = map { $_ => [] } @order;

# The text with strings, characters and comments blanked, of the same length.
sub masked {
  my ($text) = @_;
  $text =~ s{("(?:\\.|[^"\\])*"|'(?:\\.|[^'\\])+')}{'"' . '_' x (length($1) - 2) . '"'}ge;
  $text =~ s{(//.*)$}{' ' x length($1)}e;
  return $text;
}

# Where the terms of a condition begin and end: what && or || joins outside of brackets.
sub terms {
  my ($text) = @_;
  my ($depth, $from, $join, @terms) = (0, 0, '');
  for (my $i = 0; $i < length $text; ++$i) {
    my $at = substr $text, $i, 1;
    ++$depth if $at =~ /[(\[{]/;
    --$depth if $at =~ /[)\]}]/;
    next unless $depth == 0 && substr($text, $i) =~ /^ (&&|\|\|) /;
    push @terms, [$from, $i - $from, $1];
    ($from, $join) = ($i + 4, $1);
  }
  push @terms, [$from, length($text) - $from, $join] if @terms;
  return @terms;
}

for my $file (@ARGV) {
  open my $source, '<', $file or die "$file: $!\n";
  while (my $line = <$source>) {
    chomp $line;
    my $mask = masked($line);
    next if $mask =~ /^\s*(#|\/\/|\*|$|static_assert|using |namespace |template|extern|public:|private:)/;
    my $add = sub { push @{$found{$_[0]}}, "$_[0]\t$file\t$.\t$_[1]" if $_[1] ne $line };
    my $put = sub { my ($kind, $at, $length, $text) = @_;
      my $new = $line; substr($new, $at, $length) = $text; $add->($kind, $new) };

    if ($mask =~ /^(\s*(?:\} else )?(?:if|while) \()(.*)(\)(?: \{| .*;)\s*)$/) {
      my ($at, $condition) = (length $1, $2);
      if ($condition =~ /^(.*; )/) { $at += length $1; $condition = substr $condition, length $1 }
      my $ends = 0;  # `)` of the condition itself, for a one-line `if`
      my $depth = 1;
      for (; $ends < length $condition; ++$ends) {
        my $c = substr $condition, $ends, 1;
        ++$depth if $c eq '('; --$depth if $c eq ')';
        last if $depth == 0;
      }
      $condition = substr $condition, 0, $ends;
      $put->('guard', $at, length $condition, 'false');
      $put->('condition', $at, length $condition, 'true') unless $mask =~ /^\s*while/;
      for my $term (terms($condition)) {
        $put->('guard', $at + $term->[0], $term->[1], $term->[2] eq '&&' ? 'true' : 'false');
      }
    } elsif ($mask =~ /^(\s*return )(.*( == | != | && | \|\| | < | > | <= | >= |^!).*);\s*$/) {
      my ($at, $value) = (length $1, $2);
      $put->('condition', $at, length $value, '!(' . substr($line, $at, length $value) . ')');
      for my $term (terms($value)) {
        $put->('guard', $at + $term->[0], $term->[1], $term->[2] eq '&&' ? 'true' : 'false');
      }
    }
    if ($mask =~ /^\s*(\(void\))?[A-Za-z_][\w:.]*(->[\w.]+|\[[^\]]*\])*\(.*\);\s*$/ ||
        $mask =~ /^\s*(\+\+|--)?[A-Za-z_][\w.>\[\]-]* ?((\+|-|\||&)?= .*)?;\s*$/) {
      $add->('statement', ';') unless $mask =~ /^\s*(return|break|continue|default|delete|throw|else)\b/;
    }
    while ($mask =~ / (==|!=|<=|>=|<|>|&&|\|\||\+=|-=|\+|-|\||&) /g) {
      $put->('operator', $-[1], length $1, $swapped{$1});
    }
    while ($mask =~ /\b(true|false)\b/g) { $put->('constant', $-[1], length $1, $1 eq 'true' ? 'false' : 'true') }
    while ($mask =~ /(?<![\w.'])(\d+)(?![\w.'])/g) { $put->('constant', $-[1], length $1, $1 == 1 ? 2 : $1 + 1) }
  }
}
print map { "$_\n" } map { @{$found{$_}} } @order;
