#!/usr/bin/perl
# Doxygen input filter of the public headers, which document declarations
# with plain // comments: a comment block above a declaration becomes ///,
# a comment after one on its line becomes ///<, and a comment block above a
# run of consecutive declarations (no blank line between them) documents
# every declaration of the run (a member group whose first member's comment
# Doxygen distributes). The headers themselves stay as they are.
use strict;
use warnings;

my (@com, @run);

sub trailing {
  my ($line) = @_;
  $line =~ s#([;,{)])(\s*)//(?!/)#$1$2///<#;
  return $line;
}

sub flush_run {
  return unless @run;
  my $group = @run > 1 && @com;
  print "///\@{\n" if $group;
  print @com, @run;
  print "///\@}\n" if $group;
  @com = ();
  @run = ();
}

sub flush_all {
  flush_run();
  print @com;
  @com = ();
}

while (my $line = <>) {
  if ($line =~ m{^(\s*)//+(.*)$}s) {
    flush_run() if @run;
    push @com, "$1///$2";
    next;
  }
  if ($line =~ /^\s*$/ || $line =~ /^\s*(public|private|protected):/ || $line =~ /^\s*}/ ||
      $line =~ /^\s*#/ || $line =~ /^\s*(class|struct|enum|namespace)\s/) {
    flush_all();
    print trailing($line);
    next;
  }
  if (!@com && !@run) {
    print trailing($line);
    next;
  }
  push @run, trailing($line);
}
flush_all();
