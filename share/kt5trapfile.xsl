<?xml version="1.0" encoding="UTF-8"?>
<!--
  kt5trapfile.xsl - shows an XML trap report in a browser.

  A report may hold any elements. What has elements inside is a section with its name as heading, its
  attributes and its simple elements as a table of names and values; elements of one name that only
  carry attributes are the rows of one table, whose columns are the names of their attributes, and a
  last one without a heading for their texts. It lies beside the reports, whose prolog names it.
-->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="html" encoding="UTF-8"/>

  <!-- The attributes of one name in the rows of one table. -->
  <xsl:key name="column" match="*[not(*)]/@*"
           use="concat(generate-id(../..), ' ', name(..), ' ', name())"/>

  <xsl:template match="/">
    <html>
      <head>
        <title>Trap report: <xsl:value-of select="name(*)"/></title>
        <style>
          body { font: 14px sans-serif; margin: 2em; color: #222; }
          h1, h2, h3 { font-weight: 600; }
          section { margin-left: 1em; }
          table { border-collapse: collapse; margin: 0.5em 0; }
          th, td { border: 1px solid #ccc; padding: 2px 8px; text-align: left; vertical-align: top; }
          th { background: #f2f2f2; }
          td { font-family: monospace; white-space: pre-wrap; }
        </style>
      </head>
      <body>
        <h1><xsl:value-of select="name(*)"/></h1>
        <xsl:apply-templates select="*" mode="inside"/>
      </body>
    </html>
  </xsl:template>

  <!-- A section: its values, its tables, the sections in it. -->
  <xsl:template match="*">
    <section>
      <h2><xsl:value-of select="name()"/></h2>
      <xsl:apply-templates select="." mode="inside"/>
    </section>
  </xsl:template>

  <xsl:template match="*" mode="inside">
    <xsl:if test="@* or *[not(*) and not(@*)]">
      <table class="values">
        <xsl:for-each select="@* | *[not(*) and not(@*)]">
          <tr>
            <th><xsl:value-of select="name()"/></th>
            <td><xsl:value-of select="."/></td>
          </tr>
        </xsl:for-each>
      </table>
    </xsl:if>
    <xsl:if test="not(*) and normalize-space()">
      <p><xsl:value-of select="."/></p>
    </xsl:if>

    <!-- The first row of each name brings the others of its name along. -->
    <xsl:for-each select="*[@* and not(*)]">
      <xsl:variable name="row" select="name()"/>
      <xsl:if test="not(preceding-sibling::*[name() = $row and @* and not(*)])">
        <xsl:variable name="rows" select="../*[name() = $row and @* and not(*)]"/>
        <xsl:variable name="table" select="concat(generate-id(..), ' ', $row, ' ')"/>
        <xsl:variable name="columns" select="$rows/@*[generate-id() =
            generate-id(key('column', concat($table, name()))[1])]"/>
        <xsl:variable name="hasText" select="$rows[normalize-space()]"/>
        <h3><xsl:value-of select="$row"/></h3>
        <table class="rows">
          <tr>
            <xsl:for-each select="$columns"><th><xsl:value-of select="name()"/></th></xsl:for-each>
            <xsl:if test="$hasText"><th/></xsl:if>
          </tr>
          <xsl:for-each select="$rows">
            <xsl:variable name="cells" select="@*"/>
            <tr>
              <xsl:for-each select="$columns">
                <td><xsl:value-of select="$cells[name() = name(current())]"/></td>
              </xsl:for-each>
              <xsl:if test="$hasText"><td><xsl:value-of select="."/></td></xsl:if>
            </tr>
          </xsl:for-each>
        </table>
      </xsl:if>
    </xsl:for-each>

    <xsl:apply-templates select="*[*]"/>
  </xsl:template>
</xsl:stylesheet>
