#include "recoveryd/carve/text/textkind.h"

#include <QRegularExpression>
#include <QStringList>
#include <QTextCodec>

namespace services::recoveryd {

namespace {

struct Beginning
{
    const char *text;
    const char *suffix;
};

// What such a file begins with, behind blanks and in any case.
constexpr Beginning kBeginnings[] = {
    {"<!doctype html", "html"},
    {"<!doctype svg", "svg"},
    {"<html", "html"},
    {"<head", "html"},
    {"<svg", "svg"},
    {"<!doctype", "xml"},
    {"begin:vcard", "vcf"},
    {"begin:vcalendar", "ics"},
    {"-----begin ", "pem"},
    {"#!/usr/bin/env python", "py"},
    {"#!/usr/bin/python", "py"},
    {"#!/usr/bin/env node", "js"},
    {"#!/usr/bin/perl", "pl"},
    {"#!/bin/", "sh"},
    {"#!/usr/bin/env bash", "sh"},
    {"#!/usr/bin/env sh", "sh"},
    {"<?php", "php"},
    {"@echo off", "bat"},
    {"diff --git ", "diff"},
    {"[script info]", "ass"},
    {"webvtt", "vtt"},
    {"#extm3u", "m3u"},
    {"[internetshortcut]", "url"},
    {"[desktop entry]", "desktop"},
    {"---\n", "yaml"},
};

QRegularExpression compiled(const char *pattern)
{
    return QRegularExpression(QLatin1String(pattern), QRegularExpression::MultilineOption);
}

int count(const QString &text, const QRegularExpression &expression, int most)
{
    int hits = 0;
    for (auto it = expression.globalMatch(text); it.hasNext() && hits < most; it.next())
        ++hits;
    return hits;
}

const char *kindOfXml(const QString &head)
{
    const QString lower = head.left(2000).toLower();
    return lower.contains(QLatin1String("<svg"))    ? "svg"
           : lower.contains(QLatin1String("<html")) ? "html"
           : lower.contains(QLatin1String("office:document")) &&
                   lower.contains(QLatin1String("opendocument"))
               ? "fodt"
               : "xml";
}

/// Whether most lines have as many fields as the first one, and that at least two.
bool hasColumns(const QString &text, QChar separator)
{
    QStringList lines = text.split(QLatin1Char('\n'));
    if (lines.size() > 1)
        lines.removeLast(); // may be cut
    const int columns = lines.isEmpty() ? 0 : lines.first().count(separator);
    if (columns == 0 || lines.size() < 2)
        return false;
    int same = 0;
    for (const QString &line : qAsConst(lines))
        same += line.count(separator) == columns ? 1 : 0;
    return same * 10 >= lines.size() * 9;
}

/// Kinds that are told by how often something stands at the beginning of a line.
const char *kindOfLines(const QString &head)
{
    static const struct
    {
        QRegularExpression expression;
        int least;
        const char *suffix;
    } kinds[] = {
        {compiled("^From \\S+@\\S+ .*\\d\\d:\\d\\d"), 1, "mbox"},
        {compiled("^(From|To|Subject|Date|Message-ID|Received|MIME-Version|Return-Path): "), 3,
         "eml"},
        {compiled("^\\d+\\r?\\n\\d\\d:\\d\\d:\\d\\d,\\d{3} --> "), 1, "srt"},
        {compiled("^\\s*#\\s*include\\s*[<\"]"), 1, "c"},
        {compiled("^(def|class) \\w+.*:\\s*$"), 1, "py"},
        {compiled("^(import|from) [\\w.]+( import .*)?\\s*$"), 2, "py"},
        {compiled("^(package [\\w.]+;|import [\\w.*]+;)"), 2, "java"},
        {compiled("^(package \\w+\\s*$|func \\w+\\()"), 2, "go"},
        {compiled("^(const|let|var|export|import) .*"), 3, "js"},
        {compiled("^(CREATE TABLE|INSERT INTO|DROP TABLE) "), 1, "sql"},
        {compiled("^\\[?\\d{4}[-/]\\d\\d[-/]\\d\\d[T ]\\d\\d:\\d\\d"), 3, "log"},
        {compiled("^(#{1,6} \\S|```)"), 1, "md"},
        {compiled("^\\\\(documentclass|begin|usepackage)"), 1, "tex"},
        {compiled("^\\[[^\\]]+\\]\\s*$"), 2, "ini"},
    };
    for (const auto &kind : kinds)
        if (count(head, kind.expression, kind.least) >= kind.least)
            return kind.suffix;
    return nullptr;
}

} // namespace

QString decodedText(const QByteArray &bytes, TextEncoding encoding)
{
    const char *const name = encoding == TextEncoding::Gb18030   ? "GB18030"
                             : encoding == TextEncoding::Utf16Le ? "UTF-16LE"
                             : encoding == TextEncoding::Utf16Be ? "UTF-16BE"
                                                                 : "UTF-8";
    const QTextCodec *const codec = QTextCodec::codecForName(name);
    QString text = codec ? codec->toUnicode(bytes) : QString::fromUtf8(bytes);
    if (text.startsWith(QChar(0xFEFF)))
        text.remove(0, 1);
    return text;
}

const char *suffixOfText(const QString &head, const QString &tail)
{
    const QString trimmed = head.trimmed();
    if (trimmed.startsWith(QLatin1String("<?xml"), Qt::CaseInsensitive))
        return kindOfXml(trimmed);
    for (const Beginning &beginning : kBeginnings)
        if (trimmed.startsWith(QLatin1String(beginning.text), Qt::CaseInsensitive))
            return beginning.suffix;
    const QString end = tail.trimmed();
    const bool isObject = trimmed.startsWith(QLatin1Char('{')) && end.endsWith(QLatin1Char('}'));
    const bool isArray = trimmed.startsWith(QLatin1Char('[')) && end.endsWith(QLatin1Char(']'));
    static const QRegularExpression member = compiled("\"\\s*:|^\\[\\s*[\\[\"\\d{]");
    if ((isObject || isArray) && count(trimmed, member, 1) > 0)
        return "json";
    if (const char *const kind = kindOfLines(head))
        return kind;
    if (hasColumns(trimmed, QLatin1Char(',')))
        return "csv";
    return hasColumns(trimmed, QLatin1Char('\t')) ? "tsv" : "txt";
}

} // namespace services::recoveryd
